// Transactions, and the two wrappers that most functions of the store are made of: reading(...) and writing(...) run
// their work in one and turn what it throws into errno and -1, as guarded() of errors.h does.
#pragma once

#include "standin/store/database.h"
#include "standin/store/errors.h"

namespace standin {

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
    // before there is an answer: the transaction may have been committed, and the text says so.
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

// Runs work(soci::session&) in a transaction and commits it: 0 and errno as it was, or -1 with errno.
template <typename Work>
int transacted(Access access, Work&& work) noexcept
{
    return guarded([&] {
        Transaction transaction(access);
        work(transaction.sql());
        transaction.commit();
    });
}

template <typename Work>
int reading(Work&& work) noexcept
{
    return transacted(Access::read, work);
}

template <typename Work>
int writing(Work&& work) noexcept
{
    return transacted(Access::write, work);
}

}  // namespace standin
