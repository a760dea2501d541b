// One caller for each thread.
#include "store/rules/acting_account.h"

#include "store/base/errors.h"
#include "store/store.h"

namespace store {
namespace {

thread_local std::optional<uint32_t> tCaller;
thread_local bool tHasCommitted = false;

}  // namespace

ActingAccount::ActingAccount(uint32_t uid) : m_before(tCaller)
{
    tCaller = uid;
    tHasCommitted = false;
    forgetRefusal();
}

ActingAccount::~ActingAccount()
{
    tCaller = m_before;
}

std::optional<uint32_t> actingUid()
{
    return tCaller;
}

void noteCommit() noexcept
{
    tHasCommitted = true;
}

bool hasCommitted() noexcept
{
    return tCaller && tHasCommitted;
}

}  // namespace store
