// On whose behalf the calling thread calls the store; CallerScope of store.h sets it.
#pragma once

#include <cstdint>
#include <optional>

namespace standin {

// The uid of the calling thread's caller; nothing outside of every CallerScope.
std::optional<uint32_t> currentCaller();

// The calling thread has committed a change.
void noteCommit() noexcept;

// Whether it has since its caller was set, on whose behalf it still calls.
bool hasCommitted() noexcept;

}  // namespace standin
