// A connection is cut off by shutting its socket down: the thread that waits on it sees its end, and closes it.
#include "store/db/pool.h"

#include <cerrno>
#include <utility>

#include "store/base/errors.h"
#include "store/db/health_probe.h"

namespace store {
namespace {

constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::seconds kMaxSilence{70};  // the database itself ends a statement before

// Of the connection that the thread has leased; null for none, and for one that is not cut off.
thread_local std::atomic<std::chrono::steady_clock::time_point>* tpLastStatement = nullptr;

}  // namespace

Pool::Pool(Address address, size_t size) : m_address(std::move(address)), m_slots(size)
{
    for (size_t number = 0; number < size; ++number) {
        connect(number);
        m_free.push_back(number);
    }
    const std::function<void()> question = healthProbeFor(m_address);
    if (m_address.isPostgres) {
        question();  // without a connection for it, the pool's would be taken for lost
    }
    m_monitor = std::make_unique<HealthMonitor>(question, [this](bool isAnswering) { cutOff(isAnswering); });
}

size_t Pool::lease()
{
    std::unique_lock lock(m_mutex);
    const bool isUnrestricted = m_changed.wait_for(lock, kPatience, [this] { return !m_free.empty() || isAway(); });
    require(!isAway(), EIO, kNoAnswer);
    require(isUnrestricted, EBUSY);
    const size_t number = m_free.back();
    m_free.pop_back();
    Slot& slot = m_slots[number];
    slot.isLeased = true;
    if (m_address.isPostgres) {
        tpLastStatement = &slot.lastStatement;
        noteStatement();
    }
    return number;
}

void Pool::giveBack(size_t number) noexcept
{
    tpLastStatement = nullptr;
    const std::lock_guard lock(m_mutex);
    m_slots[number].isLeased = false;
    m_free.push_back(number);  // there is room: it was in there before
    m_changed.notify_one();
}

soci::session& Pool::at(size_t number)
{
    return *m_slots[number].pSession;
}

void Pool::close(size_t number)
{
    m_slots[number].pSession->close();
    const std::lock_guard lock(m_mutex);
    m_slots[number].socket = SocketHandle();
}

void Pool::reconnect(size_t number)
{
    close(number);
    require(!isAway(), EIO, kNoAnswer);
    try {
        connect(number);
    } catch (const std::runtime_error&) {
        m_monitor->askNow();  // so that those who come next need not try
        require(!isAway(), EIO, kNoAnswer);
        throw;
    }
}

void Pool::connect(size_t number)
{
    Slot& slot = m_slots[number];
    slot.pSession = openSession(m_address);
    const std::lock_guard lock(m_mutex);
    slot.socket = SocketHandle(*slot.pSession);
    noteStatement();
}

// SQLite lets each call see for itself: its answer is not waited for without end.
bool Pool::isAway() const
{
    return m_address.isPostgres && !m_monitor->isAnswering();
}

void Pool::cutOff(bool isAnswering)
{
    const auto oldest = Clock::now() - kMaxSilence;
    const std::lock_guard lock(m_mutex);
    for (const Slot& slot : m_slots) {
        if (slot.isLeased && (!isAnswering || slot.lastStatement.load() < oldest)) {
            slot.socket.shutDown();
        }
    }
    m_changed.notify_all();
}

void noteStatement() noexcept
{
    if (tpLastStatement != nullptr) {
        *tpLastStatement = std::chrono::steady_clock::now();
    }
}

}  // namespace store
