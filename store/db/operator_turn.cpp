// Locks the folder of a SQLite file, exclusively for the operator and for a moment for a request.
#include "store/db/operator_turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "store/base/thread_state.h"
#include "store/base/timeouts.h"

namespace store {
namespace {

int gFolder = -1;

// Asks again and again, because a process that was stopped may hold the lock for ever.
void lockFolder(int operation, std::chrono::milliseconds patience) noexcept
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (flock(gFolder, operation | LOCK_NB) != 0 && errno == EWOULDBLOCK && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(kFirstRetryPause);
    }
}

}  // namespace

void openOperatorTurns(const std::string& path)
{
    gFolder = open(std::filesystem::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

void closeOperatorTurns()
{
    if (gFolder >= 0) {
        close(gFolder);
    }
    gFolder = -1;
}

OperatorTurn::OperatorTurn() noexcept
{
    const bool isOperator = !threadState().actingUid;
    if (gFolder >= 0) {
        lockFolder(isOperator ? LOCK_EX : LOCK_SH, isOperator ? kPatience : kOperatorPatience);
    }
    if (gFolder >= 0 && !isOperator) {
        flock(gFolder, LOCK_UN);
    }
}

OperatorTurn::~OperatorTurn()
{
    if (gFolder >= 0) {
        flock(gFolder, LOCK_UN);
    }
}

}  // namespace store
