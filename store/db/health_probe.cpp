// A probe uses connections of its own: those of the pool may all be in use.
#include "store/db/health_probe.h"

#include <memory>
#include <stdexcept>
#include <string>

#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/timeouts.h"
#include "store/db/timed_connection.h"
#include "store/sql/session.h"
#include "store/sql/statement.h"

namespace store {
namespace {

constexpr char kTooSlow[] = "it does not answer in time";

// Opens the file anew each time, because an open file may have been removed from its path.
void probeSqlite(const std::string& path)
{
    soci::session sql;
    openSession(sql, *soci::factory_sqlite3(), "dbname=\"" + path + "\" readonly=1 nocreate=1");
    std::string answer;
    Statement(sql).out(answer).prepare("PRAGMA busy_timeout = " + std::to_string(kProbeTimeout.count())).first();
    number(sql, "SELECT COUNT(*) FROM meta");
}

bool answers(TimedConnection& connection)
{
    return connection.ask("SELECT 1", kProbeTimeout).has_value();
}

std::unique_ptr<TimedConnection> connect(const std::string& url)
{
    try {
        return std::make_unique<TimedConnection>(url);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(*error.what() == '\0' ? kTooSlow : error.what());
    }
}

// Tries a new connection before it gives up: the old one may have been lost without an outage.
void probePostgres(const std::string& url, std::unique_ptr<TimedConnection>& pConnection)
{
    if (pConnection != nullptr && answers(*pConnection)) {
        return;
    }
    pConnection.reset();
    pConnection = connect(url);
    if (!answers(*pConnection)) {
        pConnection.reset();
        throw std::runtime_error(kTooSlow);
    }
}

}  // namespace

std::function<void()> healthProbeFor(const Address& address)
{
    if (!address.isPostgres) {
        return [path = address.place] { probeSqlite(path); };
    }
    return [url = address.place, pConnection = std::make_shared<std::unique_ptr<TimedConnection>>()] {
        probePostgres(url, *pConnection);
    };
}

}  // namespace store
