// Lets one thread write at a time. A thread that leaves passes its turn directly to the next one, so that no thread
// that arrives in between can take it.
#include "store/db/write_queue.h"

#include <algorithm>
#include <cerrno>

#include "store/base/errors.h"
#include "store/base/timeouts.h"

namespace store {

void WriteQueue::enter(bool isOperator)
{
    std::unique_lock lock(m_mutex);
    if (!m_isTaken) {
        m_isTaken = true;
        return;
    }
    const auto next = std::find_if(m_waiters.begin(), m_waiters.end(),
                                   [=](const Waiter& other) { return isOperator && !other.isOperator; });
    const auto place = m_waiters.emplace(next, isOperator);
    const bool hasTurn = place->wake.wait_for(lock, kPatience, [&] { return place->hasTurn; });
    m_waiters.erase(place);
    require(hasTurn, EBUSY, kLocked);
}

void WriteQueue::leave()
{
    const std::lock_guard lock(m_mutex);
    if (m_waiters.empty()) {
        m_isTaken = false;
        return;
    }
    m_waiters.front().hasTurn = true;
    m_waiters.front().wake.notify_one();
}

}  // namespace store
