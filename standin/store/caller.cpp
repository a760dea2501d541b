// One caller for each thread.
#include "standin/store/caller.h"

#include "standin/store/errors.h"
#include "standin/store/store.h"

namespace standin {
namespace {

thread_local std::optional<uint32_t> tCaller;

}  // namespace

CallerScope::CallerScope(uint32_t uid) : m_before(tCaller)
{
    tCaller = uid;
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

}  // namespace standin
