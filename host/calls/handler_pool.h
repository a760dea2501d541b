// Threads that run handlers, so that those that serve the sockets never wait for one.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/calls/fair_queue.h"

namespace host {

// Workers for the jobs of a FairQueue. The worker that was idle last gets the next job: a lone client's requests use
// the memory of one thread again and again. Any thread may call add, a job as well.
class HandlerPool {
public:
    // Throws std::system_error when a thread cannot be started.
    HandlerPool(size_t workers, size_t places);
    HandlerPool(const HandlerPool&) = delete;
    HandlerPool& operator=(const HandlerPool&) = delete;
    ~HandlerPool()
    {
        stop();
    }

    // The job runs on a worker as soon as its turn comes, perhaps before this returns, and then its ending; neither may
    // throw. Whoever is told by the ending finds the worker idle. Returns false when the job will never run: there is
    // no place or no memory for it, or the pool was stopped.
    bool add(AccountKey account, FairQueue::Job job) noexcept;

    // Waits for the jobs that run and their endings, and ends the threads; jobs that still wait are never run. One
    // thread may call it, and no job.
    void stop();

private:
    struct Worker {
        std::thread thread;
        std::condition_variable wake;
        std::optional<FairQueue::Started> next;  // what it is to run
    };

    void work(Worker& worker);
    void handOut();  // with the mutex held

    std::mutex m_mutex;  // guards all below but the workers' threads
    FairQueue m_queue;
    std::vector<Worker*> m_idle;  // the one to take next last
    bool m_isStopping = false;
    std::vector<Worker> m_workers;
};

}  // namespace host
