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

// Sets how long statements wait for the locks of other transactions.
void setLockTimeout(soci::session& sql, milliseconds timeout)
{
    if (postgresOf(sql) == nullptr) {
        return setSqlite(sql, "PRAGMA busy_timeout = " + std::to_string(timeout.count()));
    }
    setPostgres(sql, "lock_timeout", std::max(timeout, milliseconds(1)));  // 0 would mean: for ever
}

std::unique_ptr<soci::session> openPostgres(const std::string& url)
{
    auto pSession = std::make_unique<soci::session>();
    openSession(*pSession, *soci::factory_postgresql(), url);
    silenceNotices(postgresOf(*pSession));
    setLockTimeout(*pSession, kPatience);
    for (const char* szSetting : kPostgresSettings) {
        execute(*pSession, szSetting);
    }
    setPostgres(*pSession, "statement_timeout", kStatementTimeout);
    // Without it, a zemhost that was suspended within a transaction would keep the others from writing.
    setPostgres(*pSession, "idle_in_transaction_session_timeout", kIdleTransactionTimeout);
    return pSession;
}

std::unique_ptr<soci::session> openPostgresInTime(const std::string& url)
{
    std::packaged_task<std::unique_ptr<soci::session>()> attempt([url] { return openPostgres(url); });
    std::future<std::unique_ptr<soci::session>> opened = attempt.get_future();
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

std::unique_ptr<soci::session> openSqlite(const std::string& path)
{
    auto pSession = std::make_unique<soci::session>();
    openSession(*pSession, *soci::factory_sqlite3(), "dbname=\"" + path + '"');
    setLockTimeout(*pSession, kPatience);
    for (const char* szSetting : kSqliteSettings) {
        setSqlite(*pSession, szSetting);
    }
    return pSession;
}

}  // namespace

std::unique_ptr<soci::session> openSession(const Address& address)
{
    return address.isPostgres ? openPostgresInTime(address.place) : openSqlite(address.place);
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
    setLockTimeout(m_sql, milliseconds(0));
}

NoLockWait::~NoLockWait()
{
    try {
        setLockTimeout(m_sql, kPatience);
    } catch (const std::runtime_error&) {  // the connection is lost, and the next one is set up anew
    }
}

}  // namespace store
