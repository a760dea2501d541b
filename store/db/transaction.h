// Transactions: inTransaction(...) runs work in one, and again where the database asks for that; reading(...) and
// writing(...), which most functions of the store are made of, turn what it throws into errno and -1, as toErrno() of
// errors.h does.
#pragma once

#include <chrono>
#include <type_traits>

#include "store/base/errors.h"
#include "store/db/database.h"

namespace store {

enum class Access { read, write };

// One leased connection in one transaction, rolled back on destruction unless committed. A reading transaction sees one
// moment of the store; writing ones run one after the other, and a thread that begins one gives up its snapshot.
// An object is used by one thread; a thread has one at a time.
class Transaction {
public:
    // Throws Refusal EBUSY when no connection or lock comes free within five seconds, EIO when no store is open.
    explicit Transaction(Access access);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    soci::session& sql();

    // Throws soci::soci_error; the transaction is rolled back then. Throws Refusal EIO when the connection is lost
    // before the database says what became of the changes.
    void commit();

private:
    // A turn to write, given back last of all.
    struct Turn {
        explicit Turn(Access access);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        const bool isTaken;
    };

    Turn m_turn;
    Connection m_connection;
    bool m_open = true;
};

// How long a transaction that the database gave up is repeated: five seconds from when the object was made.
class RetryTimer {
public:
    // To be called in a catch block: returns after a pause, longer each time, where the exception says that the
    // transaction is to be repeated and there is time left. Else throws the exception.
    void pauseOrThrow();

private:
    std::chrono::steady_clock::time_point m_end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    int m_pause = 1;  // milliseconds, at most
};

// Runs work(soci::session&) in a transaction, commits it and returns what the work returned. A database may give up a
// transaction that another one came in the way of; then the work runs once more, in a new transaction and from its
// start. So whatever it sets outside itself it sets anew in each run, from what was there before the first one. Throws
// what the work and the transaction throw.
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
        } catch (const soci::soci_error&) {
            retry.pauseOrThrow();
        }
    }
}

// Runs work(soci::session&), which returns nothing, in a transaction: 0 and errno as it was, or -1 with errno.
template <typename Work>
int reading(Work&& work) noexcept
{
    return toErrno([&work] { inTransaction(Access::read, work); });
}

template <typename Work>
int writing(Work&& work) noexcept
{
    return toErrno([&work] { inTransaction(Access::write, work); });
}

}  // namespace store
