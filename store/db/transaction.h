// Runs work in a transaction, and again when the database gave the transaction up.
#pragma once

#include <chrono>
#include <cstdint>
#include <type_traits>

#include "store/base/timeouts.h"
#include "store/db/database.h"
#include "store/sql/database_error.h"

namespace store {

// unsyncedWrite: writes, but does not wait until the change is on disk, where the next other change brings it, too.
enum class Access { read, write, unsyncedWrite };

// Returns the access for a change on this thread. number: which change of the acting account's request it is, or whose
// notice; from the second one on they are on disk only after ActingAccount::makeDurable().
Access accessForChange(uint64_t number);

// One leased connection in one transaction, rolled back on destruction unless committed. A reading transaction sees the
// store as it was at one moment. Writing transactions run one after the other; the thread that begins one loses the
// snapshot of its listing. Only one thread may use an object, and a thread may have only one object at a time.
class Transaction {
public:
    // Throws Refusal or DatabaseError: EBUSY when no connection or lock becomes free within kPatience; EIO when no
    // store is open or the database does not answer.
    explicit Transaction(Access access);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    soci::session& sql();

    // Throws DatabaseError; the transaction is rolled back then. Throws Refusal EIO when the connection was lost before
    // the database said whether it stored the changes.
    void commit();

private:
    // The turn of a writing transaction in the queue of writers.
    struct WriteTurn {
        explicit WriteTurn(Access access);
        ~WriteTurn();
        WriteTurn(const WriteTurn&) = delete;
        WriteTurn& operator=(const WriteTurn&) = delete;
        const bool isTaken;
    };

    // Lets SQLite wait for the disk again on this connection, after a transaction of that access.
    struct SyncReset {
        ~SyncReset();
        Connection& connection;
        const Access access;
    };

    WriteTurn m_turn;  // declared first, so that it ends after the connection is given back
    Connection m_connection;
    const Access m_access;
    const SyncReset m_sync;
    bool m_open = true;
};

// Decides whether a transaction that the database gave up runs once more, for kPatience from the object's creation on.
class RetryTimer {
public:
    // Call it in the catch block of the error. Returns after a pause, which grows each time, when the transaction is
    // worth repeating and there is time left. Otherwise throws the error again.
    void pauseOrThrow(const DatabaseError& error);

private:
    std::chrono::steady_clock::time_point m_end = std::chrono::steady_clock::now() + kPatience;
    std::chrono::milliseconds m_longestPause = kFirstRetryPause;
};

// Runs work(soci::session&) in a transaction, commits it and returns the work's result. A database may give up a
// transaction because of another one; then the work runs once more from its start, in a new transaction. So the work
// must not depend on anything that an earlier run of it has set. Throws the exceptions of the work and of the
// transaction.
template <typename Work>
auto inTransaction(Access access, Work&& work)
{
    using Result = std::invoke_result_t<Work&, soci::session&>;
    for (RetryTimer retry;;) {
        try {
            Transaction transaction(access);
            if constexpr (std::is_void_v<Result>) {
                work(transaction.sql());
                return transaction.commit();
            } else {
                Result result = work(transaction.sql());
                transaction.commit();
                return result;
            }
        } catch (const DatabaseError& error) {
            retry.pauseOrThrow(error);
        }
    }
}

}  // namespace store
