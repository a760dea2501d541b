// Queues jobs of several accounts and decides which job starts next.
#include "host/calls/fair_queue.h"

#include <utility>

namespace host {

bool FairQueue::add(AccountKey account, Job job)
{
    // All memory is allocated before the first change, so that std::bad_alloc leaves the queue as it was.
    std::list<Job> added;
    added.push_back(std::move(job));
    std::list<AccountKey> turn{account};
    const auto entry = m_accounts.try_emplace(account).first;
    std::list<Job>& waiting = entry->second.waiting;
    if (!m_slots.hasOneFor(waiting.size())) {
        eraseIfUnused(entry);
        return false;
    }
    m_slots.take();
    if (waiting.empty()) {
        m_turns.splice(m_turns.end(), turn);
    }
    waiting.splice(waiting.end(), added);
    return true;
}

std::optional<FairQueue::StartedJob> FairQueue::start()
{
    // An account that may not start another job yet keeps its turn; the accounts behind it go first.
    for (auto turn = m_turns.begin(); turn != m_turns.end(); ++turn) {
        Account& account = m_accounts.find(*turn)->second;
        if (m_workers.hasOneFor(account.running)) {
            return startFirstJob(turn, account);
        }
    }
    return std::nullopt;
}

FairQueue::StartedJob FairQueue::startFirstJob(std::list<AccountKey>::iterator turn, Account& account)
{
    StartedJob started{*turn, std::move(account.waiting.front())};
    account.waiting.pop_front();
    ++account.running;
    m_workers.take();
    m_slots.giveBack();
    if (account.waiting.empty()) {
        m_turns.erase(turn);
    } else {
        m_turns.splice(m_turns.end(), m_turns, turn);
    }
    return started;
}

void FairQueue::finish(AccountKey account)
{
    const auto entry = m_accounts.find(account);
    --entry->second.running;
    m_workers.giveBack();
    eraseIfUnused(entry);
}

void FairQueue::eraseIfUnused(Accounts::iterator account)
{
    if (account->second.waiting.empty() && account->second.running == 0) {
        m_accounts.erase(account);
    }
}

}  // namespace host
