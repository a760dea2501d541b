// Opens connections to a database and sets them up.
#pragma once

#include <memory>
#include <string>

#include <soci/soci.h>

#include "store/sql/address.h"

namespace store {

// Connects to the database and sets the connection up. The caller owns it, and uses it on one thread at a time. Any
// thread may call it. Throws DatabaseError, and Refusal EIO when the server does not answer in time.
std::unique_ptr<soci::session> openSession(const Address& address);

// Connects the session, without any setting, and waits for as long as that takes. parameters: for SOCI's backend.
// Throws DatabaseError.
void openSession(soci::session& sql, const soci::backend_factory& factory, const std::string& parameters);

// While the object lives, statements on the connection fail with EBUSY at once where they would wait for a lock.
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
