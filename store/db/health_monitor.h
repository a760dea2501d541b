// Whether the database answers, known at any time without asking it.
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

// Asks a question every second on a thread of its own, and tells of the beginning and the end of an outage. Any thread
// may call it.
class HealthMonitor {
public:
    // question: returns when it was answered; throws std::exception, with a text for people, when it was not or too
    // slowly. afterwards: called each time with what came of it, and must not throw. Both run on the watch's thread.
    // Throws std::system_error when that cannot be started.
    HealthMonitor(std::function<void()> question, std::function<void(bool isAnswering)> afterwards);
    HealthMonitor(const HealthMonitor&) = delete;
    HealthMonitor& operator=(const HealthMonitor&) = delete;

    // Waits for a question that has been asked.
    ~HealthMonitor();

    // Whether the last question was answered; true before the first.
    bool isAnswering() const
    {
        return m_isAnswering;
    }

    // Has the question asked at once, unless it just is, and waits for what comes of it.
    void askNow();

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void ask();  // without the mutex
    void note(const std::string& failure);

    const std::function<void()> m_question;
    const std::function<void(bool)> m_afterwards;
    std::atomic<bool> m_isAnswering{true};
    Clock::time_point m_lostSince;  // the outage, if there is one; the thread's
    std::mutex m_mutex;             // guards the next four
    std::condition_variable m_changed;
    bool m_isWanted = false;  // at once
    bool m_isStopping = false;
    uint64_t m_asked = 0;  // questions that came to an end
    std::thread m_thread;
};

}  // namespace store
