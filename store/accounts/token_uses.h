// Collects the uses of tokens and writes them from time to time, so that looking a token up writes nothing.
#pragma once

#include <cstdint>
#include <string>

namespace store {

// Notes that the token with that hash was used, at a time in seconds since 1970. The first note starts a thread, which
// writes all notes every kTokenUseInterval. Any thread may call it while the store is open. Never throws: a note for
// which there is no memory or no thread is lost.
void noteTokenUse(const std::string& tokenHash, int64_t time) noexcept;

// Ends the thread and writes the notes that it has not written; they are lost when that fails. To be called before the
// database is closed, while no thread uses the store.
void closeTokenUses() noexcept;

}  // namespace store
