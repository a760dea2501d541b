// Signals are the program's own affair: a thread of the store that took one would end the program.
#pragma once

#include <csignal>

namespace store {

// For as long as it lives, the calling thread takes no signal, and a thread that it starts takes none ever.
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
