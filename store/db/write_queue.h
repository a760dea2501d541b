// Queues the threads of this process that wait for their turn to write.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>

namespace store {

// Lets one thread write at a time: the operator's before those of requests, and each kind in the order of arrival. The
// database by itself would let all waiting threads sleep and try again, and admit whichever is awake at the right
// moment. Any thread may call it.
class WriteQueue {
public:
    // Waits for the calling thread's turn; the thread must not have it yet. Throws Refusal EBUSY when the turn does not
    // come within kPatience. isOperator: whether the thread works for the operator and not for a request.
    void enter(bool isOperator);

    // Ends the turn and hands it to the next thread.
    void leave();

private:
    struct Waiter {
        explicit Waiter(bool isForOperator) : isOperator(isForOperator) {}
        const bool isOperator;
        std::condition_variable wake;
        bool hasTurn = false;
    };

    std::mutex m_mutex;  // guards the members below and the waiters
    bool m_isTaken = false;
    std::list<Waiter> m_waiters;  // in the order of their turns
};

}  // namespace store
