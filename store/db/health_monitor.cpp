// Runs the monitor's thread and writes the lines about outages.
#include "store/db/health_monitor.h"

#include <exception>
#include <utility>

#include "store/base/signal_block.h"
#include "store/base/timeouts.h"
#include "store/store.h"

namespace store {
namespace {

std::mutex gHealthSinkMutex;  // guards the sink
std::function<void(const std::string&)> gHealthSink;

std::atomic<uint64_t> gOutages{0};

}  // namespace

void reportOutage(const std::string& line) noexcept
try {
    const std::lock_guard lock(gHealthSinkMutex);
    if (gHealthSink) {
        gHealthSink(line);
    }
} catch (...) {  // a log that fails does not stop the monitor
}

HealthMonitor::HealthMonitor(std::function<void()> probe, std::function<void(bool)> afterProbe)
    : m_probe(std::move(probe)), m_afterProbe(std::move(afterProbe))
{
    const SignalBlock block;
    m_thread = std::thread(&HealthMonitor::run, this);
}

HealthMonitor::~HealthMonitor()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
        m_changed.notify_all();
    }
    m_thread.join();
}

void HealthMonitor::probeNow()
{
    std::unique_lock lock(m_mutex);
    const uint64_t before = m_probes;
    m_isWanted = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_probes != before; });
}

void HealthMonitor::run()
{
    std::unique_lock lock(m_mutex);
    for (std::chrono::seconds pause = kProbeInterval;;) {
        m_changed.wait_for(lock, pause, [this] { return m_isWanted || m_isStopping; });
        if (m_isStopping) {
            return;
        }
        const bool wasAnswering = m_isAnswering;
        lock.unlock();
        probe();
        lock.lock();
        m_isWanted = false;
        ++m_probes;
        m_changed.notify_all();
        // When an outage begins, the database may answer under another address at once.
        pause = wasAnswering && !m_isAnswering ? std::chrono::seconds(0) : kProbeInterval;
    }
}

void HealthMonitor::probe()
{
    std::string failure;
    try {
        m_probe();
    } catch (const std::exception& e) {
        failure = e.what();
        failure = failure.empty() ? "no reason given" : failure;
    }
    noteResult(failure);
    m_afterProbe(failure.empty());
}

void HealthMonitor::noteResult(const std::string& failure)
{
    const bool isAnswering = failure.empty();
    if (m_isAnswering.exchange(isAnswering) == isAnswering) {
        return;
    }
    gOutages += isAnswering ? 0 : 1;
    const auto length = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_outageBegin);
    m_outageBegin = Clock::now();
    reportOutage(isAnswering ? "the store answers again after " + std::to_string(length.count()) + " s"
                             : "the store does not answer: " + failure);
}

uint64_t outageCount()
{
    return gOutages;
}

void setOutageSink(std::function<void(const std::string& line)> sink)
{
    const std::lock_guard lock(gHealthSinkMutex);
    gHealthSink = std::move(sink);
}

}  // namespace store
