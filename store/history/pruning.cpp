// Deletes old rows a few at a time, so that a writer never waits long for a step.
#include "store/history/pruning.h"

#include <cstdint>
#include <ctime>
#include <limits>
#include <memory>
#include <string>

#include "store/base/repeated_task.h"
#include "store/base/timeouts.h"
#include "store/db/quiet_transaction.h"
#include "store/history/recorder.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

constexpr int64_t kDay = 24 * 60 * 60;  // seconds
constexpr int64_t kRowsOfStep = 100;

std::unique_ptr<RepeatedTask> gPruning;

// Looks at the oldest rows only. A row with a later time, from a wrong clock, stays until its own time has come.
RepeatedTask::Pause prune(int64_t days)
{
    const int64_t limit = days == 0 ? std::numeric_limits<int64_t>::max() : std::time(nullptr) - days * kDay;
    int64_t deleted = 0;
    const bool isDone = inQuietTransaction([&](soci::session& sql) {
        deleted = change(sql,
                         "DELETE FROM history WHERE number IN (SELECT number FROM history ORDER BY number LIMIT " +
                             std::to_string(kRowsOfStep) + ") AND time < :limit",
                         limit);
    });
    if (!isDone) {
        return kPruningRetryPause;
    }
    return deleted == kRowsOfStep ? kPruningStepPause : kPruningInterval;
}

}  // namespace

void keepHistory(int64_t days)
{
    setRecording(days > 0);
    gPruning = std::make_unique<RepeatedTask>(RepeatedTask::Pause(0), [days] { return prune(days); });
}

void stopPruning() noexcept
{
    gPruning.reset();
}

}  // namespace store
