// What happens when calls into the platform fail: each one in turn.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tests/fake_platform.h"

namespace fake {

struct Outcome {
    std::string result;  // empty: the same as without a failure
    // Log lines between semicolons, in their short form but without errno; those that are written only when access is
    // denied are expected only then. $ stands for the last argument of the failing call.
    std::string lines;
    std::map<int, std::string> resultByErrno{};  // where an errno makes a difference
};

// By the call that fails: its name, with arguments where they make a difference, and "#2" for the second call that is
// the same. The longest that fits counts.
using Outcomes = std::map<std::string, Outcome>;

// Runs a scenario once to see which platform calls it makes, then lets each of those that can fail do so, alone and
// together with all that follow, with errno 0, 2 and 13. The outcome of one failing alone must be the expected one.
// After each round everything must have been released, and the scenario must succeed again.
void sweep(const std::function<void()>& prepare, const std::function<std::string()>& run, const Outcomes& outcomes);

}  // namespace fake
