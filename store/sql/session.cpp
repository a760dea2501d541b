// Opens connections to a database and sets them up. A connection to PostgreSQL is opened on a thread of its own,
// because SOCI resolves host names and sends its first query without a time limit. When that takes too long, the thread
// is detached.
#include "store/sql/session.h"

#include <cerrno>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/base/signal_block.h"
#include "store/base/timeouts.h"
#include "store/sql/database_error.h"
#include "store/sql/postgres_connection.h"
#include "store/sql/statement.h"

namespace store {
namespace {

using std::chrono::milliseconds;

constexpr const char* kSqliteSettings[] = {"PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON",
                                           "PRAGMA temp_store = MEMORY"};
constexpr const char* kPostgresSettings[] = {"SET client_encoding = 'UTF8'", "SET client_min_messages = 'error'"};

// Some of SQLite's settings answer with a row, which must be fetched.
void setSqlite(soci::session& sql, const std::string& setting)
{
    std::string answer;
    Statement(sql).out(answer).prepare(setting).first();
}

void setPostgres(soci::session& sql, const std::string& name, milliseconds value)
{
    execute(sql, "SET " + name + " = " + std::to_string(value.count()));
}

// Sets how long statements on SQLite wait for the locks of other transactions.
void setBusyTimeout(soci::session& sql, milliseconds timeout)
{
    if (postgresOf(sql) == nullptr) {
        setSqlite(sql, "PRAGMA busy_timeout = " + std::to_string(timeout.count()));
    }
}

// Connects to one server. Settings are made last: behind a pooler that shares them they would reach others.
OpenSession openPostgres(const std::string& url, Primary& primary)
{
    auto pSession = std::make_unique<soci::session>();
    openSession(*pSession, *soci::factory_postgresql(), url);
    silenceNotices(postgresOf(*pSession));
    const Backend backend = primary.accept(postgresOf(*pSession));
    primary.requireOwnProcess(backend.process);
    setPostgres(*pSession, "lock_timeout", kPatience);
    for (const char* szSetting : kPostgresSettings) {
        execute(*pSession, szSetting);
    }
    setPostgres(*pSession, "statement_timeout", kStatementTimeout);
    // Without it, a zemhost that was suspended within a transaction would keep the others from writing.
    setPostgres(*pSession, "idle_in_transaction_session_timeout", kIdleTransactionTimeout);
    return {std::move(pSession), backend};
}

OpenSession openPostgresInTime(std::shared_ptr<Primary> pPrimary)
{
    std::packaged_task<OpenSession()> attempt([pPrimary = std::move(pPrimary)] {
        return pPrimary->connect([&](const std::string& url) { return openPostgres(url, *pPrimary); });
    });
    std::future<OpenSession> opened = attempt.get_future();
    std::thread thread = [&] {
        const SignalBlock block;
        return std::thread(std::move(attempt));
    }();
    if (opened.wait_for(kWholeConnectTimeout) != std::future_status::ready) {
        thread.detach();
        throw Refusal(EIO, Reason::away, "", kNoAnswer);
    }
    thread.join();
    return opened.get();
}

OpenSession openSqlite(const std::string& path)
{
    auto pSession = std::make_unique<soci::session>();
    openSession(*pSession, *soci::factory_sqlite3(), "dbname=\"" + path + '"');
    setBusyTimeout(*pSession, kPatience);
    for (const char* szSetting : kSqliteSettings) {
        setSqlite(*pSession, szSetting);
    }
    return {std::move(pSession)};
}

}  // namespace

OpenSession openSession(const Address& address)
{
    return address.isPostgres ? openPostgresInTime(address.pPrimary) : openSqlite(address.place);
}

void openSession(soci::session& sql, const soci::backend_factory& factory, const std::string& parameters)
{
    try {
        sql.open(factory, parameters);
    } catch (const soci::soci_error& error) {
        throw DatabaseError(error);
    }
}

NoLockWait::NoLockWait(soci::session& sql) : m_sql(sql)
{
    setBusyTimeout(m_sql, milliseconds(0));
}

NoLockWait::~NoLockWait()
{
    try {
        setBusyTimeout(m_sql, kPatience);
    } catch (const std::runtime_error&) {  // the connection is lost, and the next one is set up anew
    }
}

}  // namespace store
