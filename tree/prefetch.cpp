// Prefetches the memory around the members of an object.
#include "tree/prefetch.h"

#include <cstdint>

namespace {

constexpr uintptr_t cacheLine = 64;
constexpr uintptr_t linesBefore = 8;  // the first member by name is seldom the first in memory
constexpr uintptr_t lines = 24;

}  // namespace

void prefetch_members(const Json::Value& jNode)
{
    if (jNode.isObject() && !jNode.empty()) {
        prefetch_around(&*jNode.begin());
    }
}

void prefetch_around(const Json::Value* pjMember)
{
    const uintptr_t begin = reinterpret_cast<uintptr_t>(pjMember) - linesBefore * cacheLine;
    for (uintptr_t line = 0; line < lines; ++line) {
        __builtin_prefetch(reinterpret_cast<const void*>(begin + line * cacheLine));
    }
}
