// One caller for each thread.
#include "standin/store/caller.h"

#include "standin/store/errors.h"
#include "standin/store/store.h"

namespace standin {
namespace {

thread_local std::optional<uint32_t> tCaller;
thread_local bool tHasCommitted = false;

}  // namespace

CallerScope::CallerScope(uint32_t uid) : m_before(tCaller)
{
    tCaller = uid;
    tHasCommitted = false;
    forgetRefusal();
}

CallerScope::~CallerScope()
{
    tCaller = m_before;
}

std::optional<uint32_t> currentCaller()
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

}  // namespace standin
