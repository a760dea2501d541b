// Leases connections and cuts off those that do not answer. Shutting down the socket makes the thread that waits on the
// connection see its end and close it.
#include "store/db/pool.h"

#include <cerrno>
#include <functional>
#include <utility>

#include "store/base/errors.h"
#include "store/base/timeouts.h"
#include "store/db/health_probe.h"
#include "store/sql/session.h"

namespace store {

Pool::Pool(Address address, size_t size) : m_address(std::move(address)), m_slots(size)
{
    for (size_t number = 0; number < size; ++number) {
        connect(number);
        m_free.push_back(number);
    }
    const std::function<void()> probe = healthProbeFor(m_address);
    if (m_address.isPostgres) {
        probe();  // opens the monitor's own connection; without it the monitor would report an outage
    }
    m_monitor =
        std::make_unique<HealthMonitor>(probe, [this](bool isAnswering) { cutOffSilentConnections(isAnswering); });
}

size_t Pool::lease()
{
    std::unique_lock lock(m_mutex);
    const bool isFree = m_changed.wait_for(lock, kPatience, [this] { return !m_free.empty() || isAway(); });
    requireAnswer(!isAway());
    require(isFree, EBUSY, kLocked);
    const size_t number = m_free.back();
    m_free.pop_back();
    Slot& slot = m_slots[number];
    slot.isLeased = true;
    if (m_address.isPostgres) {
        setStatementTime(&slot.lastStatement);
    }
    return number;
}

void Pool::giveBack(size_t number) noexcept
{
    setStatementTime(nullptr);
    const std::lock_guard lock(m_mutex);
    m_slots[number].isLeased = false;
    m_free.push_back(number);  // needs no memory: the vector has held all numbers before
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
    requireAnswer(!isAway());
    try {
        connect(number);
    } catch (const std::runtime_error&) {
        m_monitor->probeNow();  // so that other threads fail at once instead of trying too
        requireAnswer(!isAway());
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

// Only PostgreSQL can keep a call waiting for long. A call to SQLite fails soon by itself.
bool Pool::isAway() const
{
    return m_address.isPostgres && !m_monitor->isAnswering();
}

void Pool::cutOffSilentConnections(bool isAnswering)
{
    const auto oldest = std::chrono::steady_clock::now() - kLongestSilence;
    const std::lock_guard lock(m_mutex);
    for (const Slot& slot : m_slots) {
        if (slot.isLeased && (!isAnswering || slot.lastStatement.load() < oldest)) {
            slot.socket.shutDown();
        }
    }
    m_changed.notify_all();
}

}  // namespace store
