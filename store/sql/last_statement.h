// Records when each leased connection last executed a statement, and whether the thread waits for its answer, so that
// the pool can cut off connections that fell silent.
#pragma once

#include <atomic>
#include <chrono>

namespace store {

struct Activity {
    std::atomic<std::chrono::steady_clock::time_point> lastStatement{};
    std::atomic<bool> isWaiting{false};  // for the answer to the last statement
};

// Lets the calling thread record its statements in *pActivity; records one now. pActivity: belongs to the connection
// that the thread has leased; null ends the recording.
void setActivity(Activity* pActivity) noexcept;

// While the object lives, the calling thread waits for the answer to a statement.
class StatementMark {
public:
    StatementMark() noexcept;
    ~StatementMark();
    StatementMark(const StatementMark&) = delete;
};

}  // namespace store
