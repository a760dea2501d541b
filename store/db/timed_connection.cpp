// Uses PostgreSQL's client library itself, which can send a query and wait for the answer separately.
#include "store/db/timed_connection.h"

#include <stdexcept>

#include "store/base/errors.h"
#include "store/sql/postgres_connection.h"

namespace store {

TimedConnection::TimedConnection(Primary& primary)
    : m_pConnection(primary.connect([&](const std::string& url) {
          Handle pConnection = connect(url);
          m_backend = primary.accept(pConnection.get());
          return pConnection;
      }))
{
}

TimedConnection::Handle TimedConnection::connect(const std::string& url)
{
    Handle pConnection(PQconnectdb(url.c_str()));
    silenceNotices(pConnection.get());
    if (PQstatus(pConnection.get()) != CONNECTION_OK) {
        throw std::runtime_error(onOneLine(PQerrorMessage(pConnection.get())));
    }
    return pConnection;
}

std::optional<std::string> TimedConnection::ask(const char* szQuery, std::chrono::milliseconds limit)
{
    return store::ask(m_pConnection.get(), szQuery, limit);
}

bool TimedConnection::isIdle() const
{
    return PQtransactionStatus(m_pConnection.get()) == PQTRANS_IDLE;
}

bool TimedConnection::isLost() const
{
    return PQstatus(m_pConnection.get()) != CONNECTION_OK;
}

}  // namespace store
