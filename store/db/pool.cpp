// Leases connections and cuts off those that do not answer. Shutting down the socket makes the thread that waits on the
// connection see its end and close it.
#include "store/db/pool.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include "store/base/errors.h"
#include "store/base/timeouts.h"
#include "store/sql/session.h"

namespace store {

// The probe's connection is made first: openSession compares the others with it.
Pool::Pool(Address address, size_t size) : m_address(std::move(address)), m_probe(m_address.pPrimary), m_slots(size)
{
    if (m_address.isPostgres) {
        probe();
        for (size_t i = 1; i < m_address.pPrimary->serverCount(); ++i) {
            m_probe.lookForPrimary();  // the first server may be a former primary that accepts writes
        }
    }
    for (size_t number = 0; number < size; ++number) {
        connect(number);
        m_free.push_back(number);
    }
    m_monitor = std::make_unique<HealthMonitor>([this] { probe(); },
                                                [this](bool isAnswering) { cutOffSilentConnections(isAnswering); });
}

void Pool::probe()
{
    m_address.isPostgres ? m_probe.probe() : probeSqlite(m_address.place);
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
        setActivity(&slot.activity);
    }
    const bool isOfUse = !m_address.isPostgres || (!isFormer(number) && !slot.isDoubtful);
    slot.isDoubtful = false;
    lock.unlock();
    if (!isOfUse) {
        close(number);
    }
    return number;
}

void Pool::giveBack(size_t number) noexcept
{
    setActivity(nullptr);
    const std::lock_guard lock(m_mutex);
    m_slots[number].isLeased = false;
    m_free.push_back(number);  // needs no memory: the vector has held all numbers before
    m_changed.notify_one();
}

soci::session& Pool::at(size_t number)
{
    return *m_slots[number].pSession;
}

bool Pool::isFormer(size_t number) const
{
    return m_address.isPostgres && m_address.pPrimary->isFormer(m_slots[number].backend);
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
    OpenSession opened = openSession(m_address);
    slot.pSession = std::move(opened.pSession);
    const std::lock_guard lock(m_mutex);
    slot.backend = opened.backend;
    slot.socket = SocketHandle(*slot.pSession);
    const StatementMark mark;
}

// Only PostgreSQL can keep a call waiting for long. A call to SQLite fails soon by itself.
bool Pool::isAway() const
{
    return m_address.isPostgres && !m_monitor->isAnswering();
}

void Pool::cutOffSilentConnections(bool isAnswering)
{
    std::optional<std::set<int64_t>> working;
    if (isAnswering && isAnyoneWaiting()) {
        m_probe.lookForPrimary();
        working = m_probe.workingProcesses();
    }
    for (const int64_t process : shutDownSilentOnes(isAnswering, working)) {
        m_probe.endTransactionOf(process);
        reportOutage("the store does not answer on a connection, which is closed");
    }
    m_changed.notify_all();
}

std::vector<int64_t> Pool::shutDownSilentOnes(bool isAnswering, const std::optional<std::set<int64_t>>& working)
{
    std::vector<int64_t> hung;
    const auto oldest = Clock::now() - kLongestSilence;
    const std::lock_guard lock(m_mutex);
    for (size_t number = 0; number < m_slots.size(); ++number) {
        Slot& slot = m_slots[number];
        if (!slot.isLeased) {
            continue;
        }
        const bool isSilent = working && isHung(slot, *working);
        if (isSilent) {
            hung.push_back(slot.backend.process);
        }
        if (isSilent || !isAnswering || isFormer(number) || slot.activity.lastStatement.load() < oldest) {
            slot.socket.shutDown();
        }
    }
    if (!isAnswering || !hung.empty()) {
        std::for_each(m_free.begin(), m_free.end(), [this](size_t number) { m_slots[number].isDoubtful = true; });
    }
    return hung;
}

bool Pool::isAnyoneWaiting()
{
    const auto latest = Clock::now() - kSuspiciousSilence;
    const std::lock_guard lock(m_mutex);
    return m_address.isPostgres && std::any_of(m_slots.begin(), m_slots.end(), [latest](const Slot& slot) {
               return slot.isLeased && slot.activity.isWaiting && slot.activity.lastStatement.load() < latest;
           });
}

// Whether the thread waits for an answer that the server has given or never will. Two probes in a row have to find
// that: an answer may be on its way during the first.
bool Pool::isHung(Slot& slot, const std::set<int64_t>& working)
{
    const Clock::time_point statement = slot.activity.lastStatement;
    const bool isIdle = slot.activity.isWaiting && statement < Clock::now() - kSuspiciousSilence &&
                        !working.contains(slot.backend.process);
    return isIdle && std::exchange(slot.idleStatement, statement) == statement;
}

}  // namespace store
