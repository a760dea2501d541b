// On whose behalf the calling thread calls the store; CallerScope of store.h sets it.
#pragma once

#include <cstdint>
#include <optional>

namespace standin {

// The uid of the calling thread's caller; nothing outside of every CallerScope.
std::optional<uint32_t> currentCaller();

}  // namespace standin
