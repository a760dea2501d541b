// The line in which the threads of this process wait to write.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>

namespace store {

// Lets one writer in at a time, in the order in which they came: left to itself, the database has all who wait sleep
// and try again, and lets in whoever happens to be awake. Any thread may call it.
class WriteQueue {
public:
    // Waits for the turn of the calling thread, which must not have it yet. Throws Refusal EBUSY when that does not
    // come within five seconds.
    void enter();

    // Ends the turn.
    void leave();

private:
    struct Waiter {
        std::condition_variable wake;
        bool hasTurn = false;
    };

    std::mutex m_mutex;  // guards the two below and the waiters
    bool m_isTaken = false;
    std::list<Waiter> m_waiters;  // the first in line first
};

}  // namespace store
