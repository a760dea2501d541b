// Uses PostgreSQL's client library itself, which can send a query and wait for the answer separately.
#include "store/db/timed_connection.h"

#include <poll.h>

#include <cerrno>
#include <stdexcept>

#include "store/base/errors.h"
#include "store/sql/postgres_connection.h"

namespace store {

TimedConnection::TimedConnection(const std::string& url) : m_pConnection(PQconnectdb(url.c_str()))
{
    silenceNotices(m_pConnection.get());
    if (PQstatus(m_pConnection.get()) != CONNECTION_OK) {
        throw std::runtime_error(onOneLine(PQerrorMessage(m_pConnection.get())));
    }
}

bool TimedConnection::isIdle() const
{
    return PQtransactionStatus(m_pConnection.get()) == PQTRANS_IDLE;
}

std::optional<std::string> TimedConnection::ask(const char* szQuery, std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    std::optional<std::string> answer;
    if (PQsendQuery(m_pConnection.get(), szQuery) != 1) {
        return std::nullopt;
    }
    for (;;) {
        while (PQisBusy(m_pConnection.get()) != 0) {
            if (!receive(end)) {
                return std::nullopt;
            }
        }
        const Result pResult(PQgetResult(m_pConnection.get()));
        if (pResult == nullptr) {
            return answer;
        }
        answer.reset();
        if (PQresultStatus(pResult.get()) == PGRES_TUPLES_OK) {
            answer = PQntuples(pResult.get()) == 0 ? "" : PQgetvalue(pResult.get(), 0, 0);
        }
    }
}

// Waits until data has arrived. Returns whether it did before the end.
bool TimedConnection::receive(Clock::time_point end)
{
    pollfd arrival{PQsocket(m_pConnection.get()), POLLIN, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    const int ready = left > 0 ? poll(&arrival, 1, static_cast<int>(left)) : 0;
    return (ready < 0 && errno == EINTR) || (ready > 0 && PQconsumeInput(m_pConnection.get()) == 1);
}

}  // namespace store
