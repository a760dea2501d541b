// Probes SQLite by a query on its file, and PostgreSQL through its client library: SOCI would wait for an answer
// without a time limit.
#include "store/db/health_probe.h"

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>

#include <libpq-fe.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/base/timeouts.h"
#include "store/db/postgres_connection.h"
#include "store/db/session.h"
#include "store/db/statement.h"

namespace store {
namespace {

using Clock = std::chrono::steady_clock;

// Opens the file anew each time, because an open file may have been removed from its path.
void probeSqlite(const std::string& path)
{
    soci::session sql;
    openSession(sql, *soci::factory_sqlite3(), "dbname=\"" + path + "\" readonly=1 nocreate=1");
    std::string answer;
    Statement(sql).out(answer).prepare("PRAGMA busy_timeout = " + std::to_string(kProbeTimeout.count())).first();
    number(sql, "SELECT COUNT(*) FROM meta");
}

struct PostgresDeleter {
    void operator()(PGconn* pConnection) const
    {
        PQfinish(pConnection);
    }
    void operator()(PGresult* pResult) const
    {
        PQclear(pResult);
    }
};
using PostgresConnection = std::unique_ptr<PGconn, PostgresDeleter>;
using PostgresResult = std::unique_ptr<PGresult, PostgresDeleter>;

// Waits until data has arrived on the connection. Returns whether it did before the end.
bool receive(PGconn* pConnection, Clock::time_point end)
{
    pollfd arrival{PQsocket(pConnection), POLLIN, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    const int ready = left > 0 ? poll(&arrival, 1, static_cast<int>(left)) : 0;
    return (ready < 0 && errno == EINTR) || (ready > 0 && PQconsumeInput(pConnection) == 1);
}

// Returns whether the database answers over the connection, which is then ready for the next probe.
bool answers(PGconn* pConnection)
{
    const auto end = Clock::now() + kProbeTimeout;
    bool isAnswered = false;
    if (PQsendQuery(pConnection, "SELECT 1") != 1) {
        return false;
    }
    for (;;) {
        while (PQisBusy(pConnection) != 0) {
            if (!receive(pConnection, end)) {
                return false;
            }
        }
        const PostgresResult pResult(PQgetResult(pConnection));
        if (pResult == nullptr) {
            return isAnswered;
        }
        isAnswered = PQresultStatus(pResult.get()) == PGRES_TUPLES_OK;
    }
}

// Tries a new connection before it gives up: the old one may have been lost without an outage.
void probePostgres(const std::string& url, PostgresConnection& pConnection)
{
    if (pConnection != nullptr && answers(pConnection.get())) {
        return;
    }
    pConnection.reset(PQconnectdb(url.c_str()));
    silenceNotices(pConnection.get());
    const bool isConnected = PQstatus(pConnection.get()) == CONNECTION_OK;
    if (isConnected && answers(pConnection.get())) {
        return;
    }
    const std::string reason = onOneLine(PQerrorMessage(pConnection.get()));
    pConnection.reset();
    throw std::runtime_error(isConnected || reason.empty() ? "it does not answer in time" : reason);
}

}  // namespace

std::function<void()> healthProbeFor(const Address& address)
{
    if (!address.isPostgres) {
        return [path = address.place] { probeSqlite(path); };
    }
    return [url = address.place, pConnection = std::make_shared<PostgresConnection>()] {
        probePostgres(url, *pConnection);
    };
}

}  // namespace store
