// The connections to a database, and what is done when it does not answer.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

#include <soci/soci.h>

#include "store/db/address.h"
#include "store/db/health_monitor.h"
#include "store/db/session.h"

namespace store {

// A fixed number of connections, each leased by one thread at a time. While PostgreSQL does not answer, none is leased,
// and those that are leased are cut off, so that whoever waits for an answer on one fails. So is a single one on which
// it has been silent for too long. Any thread may call it.
class Pool {
public:
    // Makes all connections, that of the watch too, so that a wrong address is noticed at once, and a database that has
    // not as many. Throws as openSession.
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

    // Leases a connection to the calling thread. Returns its number, for giveBack. Throws Refusal: EBUSY when none
    // comes free within five seconds, EIO when the database does not answer.
    size_t lease();

    void giveBack(size_t number) noexcept;

    // These three are for the thread that has leased the connection.

    // It may have been closed, and then statements fail.
    soci::session& at(size_t number);

    // Closes it; a transaction that is open on it is lost.
    void close(size_t number);

    // Makes it anew. Throws as openSession, and Refusal EIO when the database does not answer.
    void reconnect(size_t number);

private:
    using Clock = std::chrono::steady_clock;

    struct Slot {
        std::unique_ptr<soci::session> pSession = std::make_unique<soci::session>();  // the leaseholder's
        SocketHandle socket;                                                          // none while it is closed
        bool isLeased = false;
        std::atomic<Clock::time_point> lastStatement{};  // while leased
    };

    void connect(size_t number);
    bool isAway() const;
    void cutOff(bool isAnswering);  // on the watch's thread

    const Address m_address;
    std::mutex m_mutex;  // guards the next two, and of the slots who has them and their sockets
    std::condition_variable m_changed;
    std::vector<size_t> m_free;
    std::vector<Slot> m_slots;
    std::unique_ptr<HealthMonitor> m_monitor;  // ends first

    friend void noteStatement() noexcept;
};

// The calling thread executes a statement on the connection that it has leased.
void noteStatement() noexcept;

}  // namespace store
