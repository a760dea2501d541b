// Uses libpq directly, below SOCI, for a connection that SOCI has opened.
#include "store/sql/postgres_connection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <soci/postgresql/soci-postgresql.h>

#include "store/base/errors.h"

namespace store {

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
