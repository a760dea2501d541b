// Uses libpq directly, below SOCI, for a connection that SOCI has opened.
#include "store/sql/postgres_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include <soci/postgresql/soci-postgresql.h>

#include "store/base/errors.h"

namespace store {
namespace {

using Clock = std::chrono::steady_clock;

// Waits until data has arrived. Returns whether it did before the end.
bool receive(PGconn* pConnection, Clock::time_point end)
{
    pollfd arrival{PQsocket(pConnection), POLLIN, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    const int ready = left > 0 ? poll(&arrival, 1, static_cast<int>(left)) : 0;
    return (ready < 0 && errno == EINTR) || (ready > 0 && PQconsumeInput(pConnection) == 1);
}

}  // namespace

PGconn* postgresOf(soci::session& sql)
{
    if (sql.get_backend() == nullptr || sql.get_backend_name() != "postgresql") {
        return nullptr;
    }
    return static_cast<soci::postgresql_session_backend*>(sql.get_backend())->conn_;
}

bool isLost(soci::session& sql)
{
    const PGconn* pConnection = postgresOf(sql);
    return sql.get_backend() == nullptr || (pConnection != nullptr && PQstatus(pConnection) != CONNECTION_OK);
}

void silenceNotices(PGconn* pConnection)
{
    const auto discard = [](void*, const char*) {};
    PQsetNoticeProcessor(pConnection, discard, nullptr);
}

std::optional<std::string> ask(PGconn* pConnection, const char* szQuery, std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    std::optional<std::string> answer;
    if (PQsendQuery(pConnection, szQuery) != 1) {
        return std::nullopt;
    }
    for (;;) {
        while (PQisBusy(pConnection) != 0) {
            if (!receive(pConnection, end)) {
                return std::nullopt;
            }
        }
        const std::unique_ptr<PGresult, void (*)(PGresult*)> pResult(PQgetResult(pConnection), PQclear);
        if (pResult == nullptr) {
            return answer;
        }
        answer.reset();
        if (PQresultStatus(pResult.get()) == PGRES_TUPLES_OK) {
            answer = PQntuples(pResult.get()) == 0 ? "" : PQgetvalue(pResult.get(), 0, 0);
        }
    }
}

SocketHandle::SocketHandle(soci::session& sql)
{
    if (const PGconn* pConnection = postgresOf(sql)) {
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
