// Leases the connections to a database and cuts off those that do not answer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include <soci/soci.h>

#include "store/db/health_monitor.h"
#include "store/db/health_probe.h"
#include "store/sql/address.h"
#include "store/sql/last_statement.h"
#include "store/sql/postgres_connection.h"
#include "store/sql/primary.h"

namespace store {

// A fixed number of connections, each leased by one thread at a time. While PostgreSQL does not answer, the pool leases
// none and shuts down the sockets of those that are leased, so that the threads that wait on them fail. It does the
// same to a single connection that leads to a former primary, that waits for an answer although its process at the
// server executes nothing, or that was silent for longer than kLongestSilence. Any thread may call it.
class Pool {
public:
    // Makes all connections, including the health monitor's, so that a wrong address and a database with too few
    // connections are noticed at once. Throws as openSession.
    Pool(Address address, size_t size);
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    const Address& address() const
    {
        return m_address;
    }
    bool isAnswering() const
    {
        return m_monitor->isAnswering();
    }

    // Leases a connection to the calling thread. Returns its number, which giveBack takes. Throws Refusal: EBUSY when
    // no connection becomes free within kPatience, EIO when the database does not answer.
    size_t lease();

    void giveBack(size_t number) noexcept;

    // Only the thread that has leased the connection may call the functions below.

    // The connection. Statements on it fail when it was closed.
    soci::session& at(size_t number);

    // Whether another server has become the primary since the connection was made.
    bool isFormer(size_t number) const;

    // Closes the connection; a transaction that is open on it is lost.
    void close(size_t number);

    // Makes the connection anew. Throws as openSession, and Refusal EIO when the database does not answer.
    void reconnect(size_t number);

private:
    using Clock = std::chrono::steady_clock;

    struct Slot {
        std::unique_ptr<soci::session> pSession = std::make_unique<soci::session>();  // used by the leasing thread only
        SocketHandle socket;  // empty while the session is closed
        Backend backend{};
        bool isLeased = false;
        bool isDoubtful = false;  // whether it may hang, because another one did while it was free
        Activity activity{};      // valid while the connection is leased
        // The statement whose process executed nothing at the last probe. Used by the monitor's thread only.
        Clock::time_point idleStatement{};
    };

    void connect(size_t number);
    bool isAway() const;
    // On the monitor's thread:
    void probe();
    void cutOffSilentConnections(bool isAnswering);
    // Returns the processes that executed nothing. working: as PrimaryProbe::workingProcesses().
    std::vector<int64_t> shutDownSilentOnes(bool isAnswering, const std::optional<std::set<int64_t>>& working);
    bool isAnyoneWaiting();
    static bool isHung(Slot& slot, const std::set<int64_t>& working);

    const Address m_address;
    PrimaryProbe m_probe;  // used by the constructor and by the monitor's thread only
    std::mutex m_mutex;    // guards the two members below, except for the sessions and activities
    std::condition_variable m_changed;
    std::vector<size_t> m_free;
    std::vector<Slot> m_slots;
    std::unique_ptr<HealthMonitor> m_monitor;  // declared last: its thread uses the members above
};

}  // namespace store
