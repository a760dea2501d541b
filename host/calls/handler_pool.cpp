// Runs handlers on worker threads. Each job is assigned to one idle worker, and only that worker is woken.
#include "host/calls/handler_pool.h"

#include <exception>
#include <functional>
#include <utility>

namespace host {

HandlerPool::HandlerPool(Places workers, Places slots)
    : m_slots(slots.shared + slots.reserved), m_queue(workers, slots), m_workers(workers.shared + workers.reserved)
{
    m_idleWorkers.reserve(m_workers.size());
    try {
        for (Worker& worker : m_workers) {
            worker.thread = std::thread(&HandlerPool::runJobs, this, std::ref(worker));
        }
    } catch (...) {
        stop();
        throw;
    }
}

bool HandlerPool::add(AccountKey account, FairQueue::Job job) noexcept
try {
    const std::lock_guard lock(m_mutex);
    if (m_isStopping || !m_queue.add(account, std::move(job))) {
        return false;
    }
    assignJobs();
    return true;
} catch (const std::exception&) {
    return false;  // no memory
}

bool HandlerPool::isAccepting() const
{
    const std::lock_guard lock(m_mutex);
    return !m_idleWorkers.empty() || std::chrono::steady_clock::now() - m_lastIdle <= kLongestHold;
}

bool HandlerPool::isBusy() const
{
    const std::lock_guard lock(m_mutex);
    return m_idleWorkers.size() < m_workers.size();
}

HandlerPool::Use HandlerPool::use() const
{
    const std::lock_guard lock(m_mutex);
    return {m_workers.size() - m_idleWorkers.size(), m_workers.size(), m_queue.waiting(), m_slots};
}

void HandlerPool::stop()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
        for (Worker& worker : m_workers) {
            worker.wake.notify_one();
        }
    }
    for (Worker& worker : m_workers) {
        if (worker.thread.joinable()) {
            worker.thread.join();
        }
    }
}

void HandlerPool::runJobs(Worker& worker)
{
    FairQueue::Completion completion;  // of the job that ran last
    std::unique_lock lock(m_mutex);
    for (;;) {
        // The worker is idle before it runs the completion, because that may lead to the client's next request.
        m_idleWorkers.push_back(&worker);
        m_lastIdle = std::chrono::steady_clock::now();
        assignJobs();
        if (completion) {
            lock.unlock();
            std::exchange(completion, nullptr)();
            lock.lock();
        }
        worker.wake.wait(lock, [&] { return worker.next.has_value() || m_isStopping; });
        if (!worker.next) {
            return;
        }
        const FairQueue::StartedJob started = std::move(*std::exchange(worker.next, std::nullopt));
        lock.unlock();
        completion = started.job();
        lock.lock();
        m_queue.finish(started.account);
    }
}

void HandlerPool::assignJobs()
{
    while (!m_idleWorkers.empty() && !m_isStopping) {
        auto started = m_queue.start();
        if (!started) {
            return;
        }
        Worker& worker = *m_idleWorkers.back();
        m_idleWorkers.pop_back();
        worker.next = std::move(started);
        worker.wake.notify_one();
    }
}

}  // namespace host
