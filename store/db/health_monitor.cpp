// The mutex is never held while the question is asked.
#include "store/db/health_monitor.h"

#include <chrono>
#include <exception>
#include <utility>

#include "store/base/errors.h"
#include "store/base/signal_block.h"
#include "store/store.h"

namespace store {
namespace {

constexpr std::chrono::seconds kEvery{1};

std::mutex gSinkMutex;  // guards the sink
std::function<void(const std::string&)> gSink;

void tell(const std::string& line) noexcept
try {
    const std::lock_guard lock(gSinkMutex);
    if (gSink) {
        gSink(line);
    }
} catch (...) {  // a log that fails does not stop the watch
}

}  // namespace

HealthMonitor::HealthMonitor(std::function<void()> question, std::function<void(bool)> afterwards)
    : m_question(std::move(question)), m_afterwards(std::move(afterwards))
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

void HealthMonitor::askNow()
{
    std::unique_lock lock(m_mutex);
    const uint64_t before = m_asked;
    m_isWanted = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_asked != before; });
}

void HealthMonitor::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait_for(lock, kEvery, [this] { return m_isWanted || m_isStopping; });
        if (m_isStopping) {
            return;
        }
        lock.unlock();
        ask();
        lock.lock();
        m_isWanted = false;
        ++m_asked;
        m_changed.notify_all();
    }
}

void HealthMonitor::ask()
{
    std::string failure;
    try {
        m_question();
    } catch (const std::exception& e) {
        failure = e.what();
        failure = failure.empty() ? "no reason given" : failure;
    }
    note(failure);
    m_afterwards(failure.empty());
}

void HealthMonitor::note(const std::string& failure)
{
    const bool isAnswering = failure.empty();
    if (m_isAnswering.exchange(isAnswering) == isAnswering) {
        return;
    }
    const auto lost = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - m_lostSince);
    m_lostSince = Clock::now();
    tell(isAnswering ? "the store answers again after " + std::to_string(lost.count()) + " s"
                     : "the store does not answer: " + failure);
}

void setOutageSink(std::function<void(const std::string& line)> sink)
{
    const std::lock_guard lock(gSinkMutex);
    gSink = std::move(sink);
}

}  // namespace store
