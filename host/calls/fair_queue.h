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

// A queue of fixed capacity in front of a fixed number of workers. Accounts take turns; the jobs of one account start
// in the order in which they were added.
//
// An account with n running jobs starts another one only while more than n workers are idle, and an account with n
// waiting jobs adds another one only while more than n slots of the queue are free. So a single account gets half of
// the workers and half of the queue at most, and a second account still finds some of both.
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

    // workers: the number of jobs that can run at a time. capacity: the number of jobs that can wait.
    FairQueue(size_t workers, size_t capacity) : m_idleWorkers(workers), m_freeSlots(capacity) {}

    // Appends the job to those of the account. Returns false when there is no slot for it. Throws std::bad_alloc, and
    // then nothing has changed.
    bool add(AccountKey account, Job job);

    // Removes the job whose turn it is from the queue and returns it; it occupies a worker until finish() is called.
    // Returns nothing when no job may start.
    std::optional<StartedJob> start();

    // Frees the worker of a job of that account that was started.
    void finish(AccountKey account);

private:
    struct Account {
        std::list<Job> waiting;
        size_t running = 0;
    };
    using Accounts = std::unordered_map<AccountKey, Account>;

    StartedJob startFirstJob(std::list<AccountKey>::iterator turn, Account& account);
    void eraseIfUnused(Accounts::iterator account);

    size_t m_idleWorkers;
    size_t m_freeSlots;
    Accounts m_accounts;            // those with a waiting or running job
    std::list<AccountKey> m_turns;  // accounts with a waiting job, the next one first
};

}  // namespace host
