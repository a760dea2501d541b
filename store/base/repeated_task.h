// Runs work from time to time on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "store/base/signal_block.h"

namespace store {

// Repeats the work while the object lives. The destructor waits for work that is under way.
class RepeatedTask {
public:
    using Pause = std::chrono::milliseconds;

    // firstPause: the time before the work runs first. work: returns the time until it runs again; must not throw.
    // Throws std::system_error when the thread cannot be started.
    RepeatedTask(Pause firstPause, std::function<Pause()> work) : m_work(std::move(work))
    {
        const SignalBlock block;
        m_thread = std::thread(&RepeatedTask::run, this, firstPause);
    }
    RepeatedTask(const RepeatedTask&) = delete;
    RepeatedTask& operator=(const RepeatedTask&) = delete;
    ~RepeatedTask()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isStopping = true;
            m_stopping.notify_all();
        }
        m_thread.join();
    }

private:
    void run(Pause pause)
    {
        std::unique_lock lock(m_mutex);
        while (!m_stopping.wait_for(lock, pause, [this] { return m_isStopping; })) {
            lock.unlock();
            pause = m_work();
            lock.lock();
        }
    }

    const std::function<Pause()> m_work;
    std::mutex m_mutex;  // guards the next two members; never held during the work
    std::condition_variable m_stopping;
    bool m_isStopping = false;
    std::thread m_thread;
};

}  // namespace store
