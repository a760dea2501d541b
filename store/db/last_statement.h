// When each leased connection last executed a statement, so that the pool can cut off those that fell silent.
#pragma once

#include <atomic>
#include <chrono>

namespace store {

using StatementTime = std::atomic<std::chrono::steady_clock::time_point>;

// Has the calling thread's statements noted in that place, which belongs to the connection that the thread has leased.
// Null: nowhere.
void setStatementTime(StatementTime* pTime) noexcept;

// Notes that the calling thread executes a statement now.
void noteStatement() noexcept;

}  // namespace store
