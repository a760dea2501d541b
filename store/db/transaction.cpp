// Begins and ends transactions; on both databases one writing transaction runs at a time.
#include "store/db/transaction.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <random>
#include <thread>

#include "store/base/errors.h"
#include "store/db/operator_turn.h"
#include "store/db/write_queue.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

WriteQueue gWriteQueue;
std::atomic<uint64_t> gRepeated{0};

void beginWritingSqlite(soci::session& sql, Access access)
{
    if (access == Access::unsyncedWrite) {
        execute(sql, "PRAGMA synchronous = NORMAL");
    }
    const OperatorTurn turn;
    execute(sql, "BEGIN IMMEDIATE");
}

void begin(soci::session& sql, Access access)
{
    if (!isPostgres()) {
        return access == Access::read ? execute(sql, "BEGIN") : beginWritingSqlite(sql, access);
    }
    if (access == Access::read) {
        return execute(sql, "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    }
    // READ COMMITTED: a writer that waited for the lock sees what the writer before it has committed. All statements go
    // to the database in one round trip.
    const std::string sync = access == Access::unsyncedWrite ? "SET LOCAL synchronous_commit = off; " : "";
    number(sql, "BEGIN ISOLATION LEVEL READ COMMITTED; " + sync +
                    "SELECT value FROM meta WHERE name = 'version' FOR UPDATE");
}

// Returns false when the connection did not take the statement.
bool rollBack(soci::session& sql) noexcept
{
    try {
        execute(sql, "ROLLBACK");
        return true;
    } catch (...) {
        return false;
    }
}

// Ends the transaction; closes a connection to PostgreSQL on which that fails. Returns whether it was rolled back:
// SQLite also fails when no transaction has begun.
bool rollBackOrClose(Connection& connection) noexcept
{
    const bool isRolledBack = rollBack(connection.sql());
    if (!isRolledBack && isPostgres()) {
        connection.close();
    }
    return isRolledBack;
}

// After a restart of the database server the connections of the pool are dead, so the first failure leads to one
// reconnect.
void beginOrReconnect(Connection& connection, Access access)
{
    for (bool isFirst = true;; isFirst = false) {
        try {
            return begin(connection.sql(), access);
        } catch (const Error& error) {
            if (rollBackOrClose(connection) || !isFirst || error.code == EBUSY) {
                throw;
            }
        }
        connection.reconnect();
    }
}

}  // namespace

Access accessForChange(uint64_t number)
{
    return threadState().pWatch != nullptr && number > 1 ? Access::unsyncedWrite : Access::write;
}

Transaction::WriteTurn::WriteTurn(Access access) : isTaken(access != Access::read)
{
    if (isTaken) {
        gWriteQueue.enter(!threadState().actingUid);
        threadState().pSnapshot.reset();  // the thread reads its own changes from here on
    }
}

Transaction::WriteTurn::~WriteTurn()
{
    if (isTaken) {
        gWriteQueue.leave();
    }
}

Transaction::SyncReset::~SyncReset()
{
    try {
        if (access == Access::unsyncedWrite && !isPostgres()) {
            execute(connection.sql(), "PRAGMA synchronous = FULL");
        }
    } catch (...) {
        connection.close();  // the next one is set up anew
    }
}

Transaction::Transaction(Access access) : m_turn(access), m_access(access), m_sync{m_connection, access}
{
    beginOrReconnect(m_connection, access);
}

Transaction::~Transaction()
{
    if (m_open) {
        rollBackOrClose(m_connection);
    }
}

soci::session& Transaction::sql()
{
    return m_connection.sql();
}

void Transaction::commit()
{
    requireAnswer(!m_turn.isTaken || !m_connection.isFormer());
    const uint64_t reconnects = reconnectCount();
    try {
        execute(m_connection.sql(), "COMMIT");
        m_open = false;
        if (m_access == Access::unsyncedWrite && !threadState().reconnects) {
            threadState().reconnects = reconnects;
        }
    } catch (const Error& error) {
        m_open = false;
        const auto* pReported = dynamic_cast<const DatabaseError*>(&error);
        const bool isDoubtful = pReported != nullptr && pReported->isOutcomeUnknown;
        const bool isKnown = rollBackOrClose(m_connection) && !isDoubtful;
        require(isKnown || !isPostgres() || !m_turn.isTaken, EIO,
                "the database was lost while it stored the change, which may be there now or not");
        throw;
    }
}

void RetryTimer::pauseOrThrow(const DatabaseError& error)
{
    thread_local std::minstd_rand tRandom(std::random_device{}());
    if (!error.isWorthRepeating || std::chrono::steady_clock::now() >= m_end) {
        throw;
    }
    ++gRepeated;
    // A random pause, so that the same transactions do not meet again.
    const int64_t longest = std::chrono::microseconds(m_longestPause).count();
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution<int64_t>(0, longest)(tRandom)));
    m_longestPause = std::min(2 * m_longestPause, kLongestRetryPause);
}

uint64_t repeatedTransactionCount()
{
    return gRepeated;
}

}  // namespace store
