// A job is handed to one worker, which alone is woken.
#include "host/calls/handler_pool.h"

#include <exception>
#include <functional>
#include <utility>

namespace host {

HandlerPool::HandlerPool(size_t workers, size_t places) : m_queue(workers, places), m_workers(workers)
{
    m_idle.reserve(workers);
    try {
        for (Worker& worker : m_workers) {
            worker.thread = std::thread(&HandlerPool::work, this, std::ref(worker));
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
    handOut();
    return true;
} catch (const std::exception&) {
    return false;  // no memory
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

void HandlerPool::work(Worker& worker)
{
    FairQueue::Completion ending;  // of the last job
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_idle.push_back(&worker);
        handOut();
        if (ending) {
            lock.unlock();
            std::exchange(ending, nullptr)();
            lock.lock();
        }
        worker.wake.wait(lock, [&] { return worker.next.has_value() || m_isStopping; });
        if (!worker.next) {
            return;
        }
        const FairQueue::Started started = std::move(*std::exchange(worker.next, std::nullopt));
        lock.unlock();
        ending = started.job();
        lock.lock();
        m_queue.finish(started.account);
    }
}

void HandlerPool::handOut()
{
    while (!m_idle.empty() && !m_isStopping) {
        auto started = m_queue.start();
        if (!started) {
            return;
        }
        Worker& worker = *m_idle.back();
        m_idle.pop_back();
        worker.next = std::move(started);
        worker.wake.notify_one();
    }
}

}  // namespace host
