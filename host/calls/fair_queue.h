// The order in which waiting jobs start, so that no account's keep the others' waiting, however many and long they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <unordered_map>

namespace host {

// Whom a job counts for: an account, by its uid, or all together whose account is not known.
using AccountKey = int64_t;
constexpr AccountKey kUnknownAccount = -1;

// Jobs wait in places and start on workers, of both of which there is a fixed number. Accounts take turns; the jobs of
// one start in the order in which they came. An account that has c places, or workers, gets another one only while more
// than c are free: the first may take half of them, and the next one always finds some. One thread at a time.
class FairQueue {
public:
    using Completion = std::function<void()>;
    using Job = std::function<Completion()>;  // returns what is left to do when it counts as finished; may be empty

    struct Started {
        AccountKey account;
        Job job;
    };

    FairQueue(size_t workers, size_t places) : m_idle(workers), m_free(places) {}

    // The job waits from now on. Returns false when there is no place for it. Throws std::bad_alloc, and then nothing
    // has changed.
    bool add(AccountKey account, Job job);

    // Takes out the job whose turn it is; it counts as running until its account's finish. Nothing when none may start.
    std::optional<Started> start();

    // A job of the account that was started is done.
    void finish(AccountKey account);

private:
    struct Account {
        std::list<Job> waiting;
        size_t running = 0;
    };
    using Accounts = std::unordered_map<AccountKey, Account>;

    Started startFirst(std::list<AccountKey>::iterator turn, Account& account);
    void forgetIdle(Accounts::iterator account);

    size_t m_idle;                  // workers
    size_t m_free;                  // places
    Accounts m_accounts;            // those with a job
    std::list<AccountKey> m_turns;  // of accounts with a waiting job, the next first
};

}  // namespace host
