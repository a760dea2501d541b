// Sends a probe every second and decides when the store counts as away.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace store {

// Gives the line to the sink that setOutageSink() of store.h sets.
void reportOutage(const std::string& line) noexcept;

// Probes a database on a thread of its own, and reports the beginning and the end of an outage to the sink that
// setOutageSink() of store.h sets. Any thread may call it.
class HealthMonitor {
public:
    // probe: returns when the database answered; throws std::exception, with a text for people, when it did not or was
    // too slow. afterProbe: called after each probe with its result; must not throw. Both run on the monitor's thread.
    // Throws std::system_error when the thread cannot be started.
    HealthMonitor(std::function<void()> probe, std::function<void(bool isAnswering)> afterProbe);
    HealthMonitor(const HealthMonitor&) = delete;
    HealthMonitor& operator=(const HealthMonitor&) = delete;

    // Waits for a probe that is under way.
    ~HealthMonitor();

    // Returns whether the database answered the last probe; true before the first.
    bool isAnswering() const
    {
        return m_isAnswering;
    }

    // Probes at once, or joins the probe that is under way, and waits for the result.
    void probeNow();

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void probe();  // without the mutex
    void noteResult(const std::string& failure);

    const std::function<void()> m_probe;
    const std::function<void(bool)> m_afterProbe;
    std::atomic<bool> m_isAnswering{true};
    Clock::time_point m_outageBegin;  // used by the monitor's thread alone
    std::mutex m_mutex;               // guards the members below; never held during a probe
    std::condition_variable m_changed;
    bool m_isWanted = false;  // whether a thread waits in probeNow()
    bool m_isStopping = false;
    uint64_t m_probes = 0;  // number of probes that have ended
    std::thread m_thread;
};

}  // namespace store
