// Opens connections to a database and sets them up.
#pragma once

#include <memory>
#include <string>

#include <soci/soci.h>

#include "store/sql/address.h"
#include "store/sql/primary.h"

namespace store {

// A connection that is set up. One thread at a time may use it.
struct OpenSession {
    std::unique_ptr<soci::session> pSession;
    Backend backend{};  // empty for SQLite
};

// Connects to the database and sets the connection up. Any thread may call it. Throws DatabaseError, and Refusal EIO
// when no server answers in time as the primary, or when a pooler in between lets connections share a process of the
// server.
OpenSession openSession(const Address& address);

// Connects the session, without any setting, and waits for as long as that takes. parameters: for SOCI's backend.
// Throws DatabaseError.
void openSession(soci::session& sql, const soci::backend_factory& factory, const std::string& parameters);

// While the object lives, statements on a connection to SQLite fail with EBUSY at once where they would wait for a
// lock. On PostgreSQL it has no effect: there a transaction has settings of its own.
class NoLockWait {
public:
    // Throws as statements do.
    explicit NoLockWait(soci::session& sql);
    ~NoLockWait();
    NoLockWait(const NoLockWait&) = delete;

private:
    soci::session& m_sql;
};

}  // namespace store
