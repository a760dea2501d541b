// Sets the account on whose behalf the calling thread calls the store.
#include "store/base/thread_state.h"
#include "store/store.h"

namespace store {

ActingAccount::ActingAccount(uint32_t uid) : m_before(threadState().actingUid)
{
    ThreadState& state = threadState();
    state.actingUid = uid;
    state.hasCommitted = false;
    state.changedNodes.clear();
    state.refusal = {};
}

ActingAccount::~ActingAccount()
{
    threadState().changedNodes.clear();
    threadState().actingUid = m_before;
}

}  // namespace store
