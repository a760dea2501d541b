// How a transaction begins differs between the databases; on both only one writing transaction runs at a time.
#include "store/db/transaction.h"

#include <algorithm>
#include <random>
#include <thread>

#include "store/db/statement.h"
#include "store/db/write_queue.h"
#include "store/nodes/listing_snapshot.h"
#include "store/rules/acting_account.h"

namespace store {
namespace {

WriteQueue gWriteQueue;

// A writer sees the store as it is, not as the thread's last listing found it.
Connection connectionFor(Access access)
{
    if (access == Access::write) {
        dropSnapshot();
    }
    return Connection();
}

void begin(soci::session& sql, Access access)
{
    if (!isPostgres()) {
        execute(sql, access == Access::write ? "BEGIN IMMEDIATE" : "BEGIN");
        return;
    }
    if (access == Access::read) {
        return execute(sql, "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    }
    // Who has waited for the lock then sees what the one before has done: each statement looks at the store anew. Both
    // go to the database at once.
    number(sql, "BEGIN ISOLATION LEVEL READ COMMITTED; SELECT value FROM meta WHERE name = 'version' FOR UPDATE");
}

// Whether there was a connection to roll back on.
bool rollBack(soci::session& sql) noexcept
{
    try {
        execute(sql, "ROLLBACK");
        return true;
    } catch (...) {
        return false;
    }
}

// Leaves no transaction on the connection: where that cannot be told, it is closed. Whether it was told; SQLite cannot
// roll back what has not begun.
bool leaveNone(Connection& connection) noexcept
{
    const bool isRolledBack = rollBack(connection.sql());
    if (!isRolledBack && isPostgres()) {
        connection.close();
    }
    return isRolledBack;
}

// A database server that was restarted leaves dead connections in the pool: connect anew before giving up.
void beginOrReconnect(Connection& connection, Access access)
{
    for (bool isFirst = true;; isFirst = false) {
        try {
            return begin(connection.sql(), access);
        } catch (const std::runtime_error&) {
            if (leaveNone(connection) || !isFirst || errnoOfException() == EBUSY) {
                throw;
            }
        }
        connection.reconnect();
    }
}

}  // namespace

Transaction::Turn::Turn(Access access) : isTaken(access == Access::write)
{
    if (isTaken) {
        gWriteQueue.enter();
    }
}

Transaction::Turn::~Turn()
{
    if (isTaken) {
        gWriteQueue.leave();
    }
}

Transaction::Transaction(Access access) : m_turn(access), m_connection(connectionFor(access))
{
    beginOrReconnect(m_connection, access);
}

Transaction::~Transaction()
{
    if (m_open) {
        leaveNone(m_connection);
    }
}

soci::session& Transaction::sql()
{
    return m_connection.sql();
}

void Transaction::commit()
{
    try {
        execute(m_connection.sql(), "COMMIT");
        m_open = false;
        if (m_turn.isTaken) {
            noteCommit();
        }
    } catch (const std::runtime_error&) {
        m_open = false;
        const bool isKnown = leaveNone(m_connection) && !isOutcomeUnknown();
        require(isKnown || !isPostgres() || !m_turn.isTaken, EIO,
                "the database was lost while it stored the change, which may be there now or not");
        throw;
    }
}

void RetryTimer::pauseOrThrow()
{
    thread_local std::minstd_rand tRandom(std::random_device{}());
    constexpr int kLongestPause = 64;
    if (!isToBeRepeated() || std::chrono::steady_clock::now() >= m_end) {
        throw;
    }
    // Those who met once do not meet again at the same moment.
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution(0, m_pause * 1000)(tRandom)));
    m_pause = std::min(2 * m_pause, kLongestPause);
}

}  // namespace store
