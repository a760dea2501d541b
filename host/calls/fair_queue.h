// Queues jobs of several accounts and decides which job starts next, so that no account keeps the others waiting,
// however many jobs it has and however long they run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <unordered_map>

namespace host {

// The account that a job belongs to: its uid, or kUnknownAccount, which all jobs of unknown senders share.
using AccountKey = int64_t;
constexpr AccountKey kUnknownAccount = -1;

// Workers, or slots of a queue.
struct Places {
    size_t shared;    // an account may have several of them
    size_t reserved;  // further ones, only for accounts that have none
};

// A queue of fixed capacity in front of a fixed number of workers. Accounts take turns; the jobs of one account start
// in the order in which they were added.
//
// An account with n running jobs starts another one only while more than n shared workers are idle, and an account with
// n waiting jobs adds another one only while more than n shared slots of the queue are free. So a single account gets
// half of the shared workers and slots at most. An account without any finds one as long as fewer other accounts have
// one each than are reserved, whatever they do.
//
// One thread at a time may use the object.
class FairQueue {
public:
    using Completion = std::function<void()>;
    using Job = std::function<Completion()>;  // returns a function to run after the job, or an empty one

    struct StartedJob {
        AccountKey account;
        Job job;
    };

    // workers: for the jobs that run. slots: for those that wait.
    FairQueue(Places workers, Places slots) : m_workers(workers), m_slots(slots) {}

    // Appends the job to those of the account. Returns false when there is no slot for it. Throws std::bad_alloc, and
    // then nothing has changed.
    bool add(AccountKey account, Job job);

    // Removes the job whose turn it is from the queue and returns it; it occupies a worker until finish() is called.
    // Returns nothing when no job may start.
    std::optional<StartedJob> start();

    // Frees the worker of a job of that account that was started.
    void finish(AccountKey account);

    // Returns how many jobs wait.
    size_t waiting() const
    {
        return m_slots.taken();
    }

private:
    struct Account {
        std::list<Job> waiting;
        size_t running = 0;
    };
    using Accounts = std::unordered_map<AccountKey, Account>;

    // Places of which some are taken.
    class FreePlaces {
    public:
        explicit FreePlaces(Places all) : m_all(all.shared + all.reserved), m_free(m_all), m_reserved(all.reserved) {}

        // Returns whether an account that has that many of the places may take another one.
        bool hasOneFor(size_t taken) const
        {
            return m_free > (taken == 0 ? 0 : m_reserved + taken);
        }
        void take()
        {
            --m_free;
        }
        void giveBack()
        {
            ++m_free;
        }
        size_t taken() const
        {
            return m_all - m_free;
        }

    private:
        const size_t m_all;
        size_t m_free;
        const size_t m_reserved;
    };

    StartedJob startFirstJob(std::list<AccountKey>::iterator turn, Account& account);
    void eraseIfUnused(Accounts::iterator account);

    FreePlaces m_workers;
    FreePlaces m_slots;
    Accounts m_accounts;            // those with a waiting or running job
    std::list<AccountKey> m_turns;  // accounts with a waiting job, the next one first
};

}  // namespace host
