// On whose behalf the calling thread calls the store; ActingAccount of store.h sets it.
#pragma once

#include <cstdint>
#include <optional>

namespace store {

// The uid of the calling thread's caller; nothing outside of every ActingAccount.
std::optional<uint32_t> actingUid();

// The calling thread has committed a change.
void noteCommit() noexcept;

// Whether it has since its caller was set, on whose behalf it still calls.
bool hasCommitted() noexcept;

}  // namespace store
