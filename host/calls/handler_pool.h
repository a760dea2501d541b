// Runs handlers on worker threads, so that the threads that serve the sockets never wait for one.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/calls/fair_queue.h"

namespace host {

// A pool of worker threads that run the jobs of a FairQueue. The worker that became idle last gets the next job, so
// that the requests of a single client find the caches of one thread warm.
class HandlerPool {
public:
    static constexpr std::chrono::seconds kLongestHold{5};

    // Starts a thread for each worker. workers, slots: as for FairQueue. Throws std::system_error when a thread cannot
    // be started.
    HandlerPool(Places workers, Places slots);
    HandlerPool(const HandlerPool&) = delete;
    HandlerPool& operator=(const HandlerPool&) = delete;
    ~HandlerPool()
    {
        stop();
    }

    // Queues the job for the account. A worker runs it when its turn comes, perhaps before this call returns, and then
    // runs the completion that the job returned; neither may throw. The worker counts as idle before the completion
    // runs, so that a client that gets its answer from the completion finds the worker idle for its next request.
    // Returns false when the job will never run: the queue is full, memory ran out, or the pool was stopped. Any thread
    // may call it, also from within a job.
    bool add(AccountKey account, FairQueue::Job job) noexcept;

    // Returns whether a worker is idle, or became idle in the last kLongestHold. Any thread may call it.
    bool isAccepting() const;

    // Returns whether a job runs or waits. Any thread may call it.
    bool isBusy() const;

    // How many jobs run, how many may run, how many wait, and how many may wait.
    struct Use {
        size_t running, workers, waiting, slots;
    };

    // Any thread may call it.
    Use use() const;

    // Waits for the running jobs and their completions, and ends the threads. Jobs that are still queued never run.
    // Only one thread may call it, and no job.
    void stop();

private:
    struct Worker {
        std::thread thread;
        std::condition_variable wake;
        std::optional<FairQueue::StartedJob> next;  // the job that the worker runs next
    };

    void runJobs(Worker& worker);
    void assignJobs();  // gives queued jobs to idle workers; the caller holds the mutex

    const size_t m_slots;
    mutable std::mutex m_mutex;  // guards all members below except the workers' threads
    FairQueue m_queue;
    std::vector<Worker*> m_idleWorkers;  // the one that became idle last is the last
    std::chrono::steady_clock::time_point m_lastIdle = std::chrono::steady_clock::now();  // when a worker became idle
    bool m_isStopping = false;
    std::vector<Worker> m_workers;
};

}  // namespace host
