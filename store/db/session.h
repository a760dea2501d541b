// How a connection to a database is made and set up.
#pragma once

#include <memory>
#include <utility>

#include <libpq-fe.h>
#include <soci/soci.h>

#include "store/db/address.h"

namespace store {

// Connects to the database and sets the connection up. The caller owns it, and uses it on one thread at a time. Any
// thread may call it. Throws soci::soci_error for what the database reports, Refusal EIO when it does not answer in
// time.
std::unique_ptr<soci::session> openSession(const Address& address);

// Whether statements wait for the locks of others, for five seconds as at first, or fail at once. Throws as statements
// do.
void setLockWait(soci::session& sql, bool isPatient);

// Whether the connection has ended, or was never made; known from what came of its statements, without asking. SQLite's
// does not end by itself.
bool isLost(soci::session& sql);

// Has what the server sends unasked not go to standard error, as the client library has it by itself. The connection
// may be one that could not be made.
void silence(PGconn* pConnection);

// A second descriptor of the socket of a connection to PostgreSQL. The client library closes its own as soon as it sees
// the connection's end, and the number may name something else from then on.
class SocketHandle {
public:
    // None.
    SocketHandle() = default;

    // None for a connection to SQLite. Throws Refusal EIO when the process may not have another descriptor.
    explicit SocketHandle(soci::session& sql);

    SocketHandle(SocketHandle&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    SocketHandle& operator=(SocketHandle&& other) noexcept
    {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~SocketHandle();

    // Ends the connection, if there is one: whoever waits on it sees that. Any thread may call it.
    void shutDown() const noexcept;

private:
    int m_descriptor = -1;
};

}  // namespace store
