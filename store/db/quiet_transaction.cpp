// Begins a transaction that fails at once where it would have to wait.
#include "store/db/quiet_transaction.h"

#include <exception>
#include <stdexcept>

#include "store/db/database.h"
#include "store/sql/session.h"
#include "store/sql/statement.h"

namespace store {
namespace {

void runWithoutWaiting(soci::session& sql, const std::function<void(soci::session&)>& work)
{
    const NoLockWait noLockWait(sql);
    execute(sql, isPostgres() ? "BEGIN ISOLATION LEVEL READ COMMITTED;"
                                " SET LOCAL synchronous_commit = off; SET LOCAL lock_timeout = 1"
                              : "BEGIN IMMEDIATE");
    work(sql);
    execute(sql, "COMMIT");
}

}  // namespace

bool inQuietTransaction(const std::function<void(soci::session&)>& work) noexcept
try {
    Connection connection;
    try {
        runWithoutWaiting(connection.sql(), work);
        return true;
    } catch (const std::runtime_error&) {
        connection.close();  // this ends the transaction; the next thread that leases the connection makes it anew
        return false;
    }
} catch (const std::exception&) {
    return false;
}

}  // namespace store
