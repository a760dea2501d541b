// A connection to PostgreSQL is made on a thread of its own, which is left alone when it takes too long: names are
// looked up, and SOCI asks the database its first question, without any limit.
#include "store/db/session.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <soci/postgresql/soci-postgresql.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/base/signal_block.h"
#include "store/db/statement.h"

namespace store {
namespace {

constexpr std::chrono::seconds kMaxConnecting{15};

constexpr const char* kPatience[] = {"PRAGMA busy_timeout = 5000", "SET lock_timeout = '5s'"};  // by isPostgres
constexpr const char* kNoPatience[] = {"PRAGMA busy_timeout = 0", "SET lock_timeout = '1ms'"};
constexpr const char* kSqliteSettings[] = {"PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON",
                                           "PRAGMA temp_store = MEMORY"};

// The two time-outs end what nobody waits for any more; the longest statements, of fleets of a million nodes, take some
// ten seconds. A server that was stopped in a transaction would keep the others from writing without the last one.
constexpr const char* kPostgresSettings[] = {"SET client_encoding = 'UTF8'", "SET client_min_messages = 'error'",
                                             "SET statement_timeout = '60s'",
                                             "SET idle_in_transaction_session_timeout = '60s'"};

// The client library's connection, null when there is none.
PGconn* connectionOf(soci::session& sql)
{
    if (sql.get_backend() == nullptr || sql.get_backend_name() != "postgresql") {
        return nullptr;
    }
    return static_cast<soci::postgresql_session_backend*>(sql.get_backend())->conn_;
}

// Some of SQLite's settings answer with a row, which must be fetched.
void setSqlite(soci::session& sql, const char* szSetting)
{
    std::string answer;
    Statement(sql).out(answer).prepare(szSetting).first();
}

std::unique_ptr<soci::session> openPostgres(const std::string& url)
{
    auto pSession = std::make_unique<soci::session>();
    pSession->open(*soci::factory_postgresql(), url);
    silence(connectionOf(*pSession));
    setLockWait(*pSession, true);
    for (const char* szSetting : kPostgresSettings) {
        execute(*pSession, szSetting);
    }
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
    const bool isInTime = opened.wait_for(kMaxConnecting) == std::future_status::ready;
    isInTime ? thread.join() : thread.detach();
    require(isInTime, EIO, kNoAnswer);
    return opened.get();
}

std::unique_ptr<soci::session> openSqlite(const std::string& path)
{
    auto pSession = std::make_unique<soci::session>();
    pSession->open(soci::sqlite3, "dbname=\"" + path + '"');
    setLockWait(*pSession, true);
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

void setLockWait(soci::session& sql, bool isPatient)
{
    const auto& settings = isPatient ? kPatience : kNoPatience;
    connectionOf(sql) != nullptr ? execute(sql, settings[1]) : setSqlite(sql, settings[0]);
}

bool isLost(soci::session& sql)
{
    const PGconn* pConnection = connectionOf(sql);
    return sql.get_backend() == nullptr || (pConnection != nullptr && PQstatus(pConnection) != CONNECTION_OK);
}

void silence(PGconn* pConnection)
{
    PQsetNoticeProcessor(
        pConnection, [](void*, const char*) {}, nullptr);
}

SocketHandle::SocketHandle(soci::session& sql)
{
    if (const PGconn* pConnection = connectionOf(sql)) {
        m_descriptor = fcntl(PQsocket(pConnection), F_DUPFD_CLOEXEC, 0);
        require(m_descriptor >= 0, EIO, std::strerror(errno));
    }
}

SocketHandle::~SocketHandle()
{
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

void SocketHandle::shutDown() const noexcept
{
    shutdown(m_descriptor, SHUT_RDWR);
}

}  // namespace store
