// Uses PostgreSQL's client library below SOCI: to see whether a connection has ended, and to end one from another
// thread.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>

#include <libpq-fe.h>
#include <soci/soci.h>

namespace store {

// Returns the client library's connection of the session, null for SQLite and for a session that is closed. It belongs
// to the session.
PGconn* postgresOf(soci::session& sql);

// Returns whether the connection has ended or was never made. The database is not asked; the results of earlier
// statements show it. A connection to SQLite does not end by itself.
bool isLost(soci::session& sql);

// Discards the notices of the server, which the client library would print on standard error. The attempt to connect
// may have failed.
void silenceNotices(PGconn* pConnection);

// Executes the query. Returns the first value of its first row, an empty text when there is no row or the value is
// NULL. Returns nothing when the query failed, or was not answered within the limit and the connection is of no more
// use.
std::optional<std::string> ask(PGconn* pConnection, const char* szQuery, std::chrono::milliseconds limit);

// A second descriptor of the socket of a connection to PostgreSQL. The client library closes its own descriptor as soon
// as it sees the connection's end, and from then on the same number may belong to something else.
class SocketHandle {
public:
    // No socket.
    SocketHandle() = default;

    // Duplicates the descriptor of the session's socket. Holds no socket for a connection to SQLite. Throws Refusal EIO
    // when the process has no descriptor left.
    explicit SocketHandle(soci::session& sql);

    SocketHandle(SocketHandle&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    SocketHandle& operator=(SocketHandle&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~SocketHandle();

    // Ends the connection, if there is one; a thread that waits on it then sees its end. Any thread may call it.
    void shutDown() const noexcept;

private:
    int m_descriptor = -1;
};

}  // namespace store
