// Keeps signals away from the store's threads: the program handles them, and a thread of the store that received one
// would end the program.
#pragma once

#include <csignal>

namespace store {

// While the object lives, the calling thread receives no signal. A thread started meanwhile never receives one.
class SignalBlock {
public:
    SignalBlock()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalBlock()
    {
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    SignalBlock(const SignalBlock&) = delete;

private:
    sigset_t m_before;
};

}  // namespace store
