// Holds the state of each thread.
#include "store/base/thread_state.h"

namespace store {

ThreadState& threadState() noexcept
{
    thread_local ThreadState tState;
    return tState;
}

}  // namespace store
