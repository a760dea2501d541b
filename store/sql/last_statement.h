// Records when each leased connection last executed a statement, so that the pool can cut off connections that fell
// silent.
#pragma once

#include <atomic>
#include <chrono>

namespace store {

using StatementTime = std::atomic<std::chrono::steady_clock::time_point>;

// Sets *pTime to the current time, now and whenever the calling thread executes a statement. pTime: belongs to the
// connection that the thread has leased; null ends the recording.
void setStatementTime(StatementTime* pTime) noexcept;

// Records that the calling thread executes a statement now.
void noteStatement() noexcept;

}  // namespace store
