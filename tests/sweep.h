// Runs a scenario repeatedly and lets each of its calls into the platform fail in turn.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tests/fake_platform.h"

namespace fake {

struct Outcome {
    std::string result;  // empty: the same as without a failure
    // The expected log lines, separated by semicolons, in short form but without errno. A line that begins with
    // "denied: " is expected only with errno EACCES. $ stands for the last argument of the failing call.
    std::string lines;
    std::map<int, std::string> resultByErrno{};  // results that differ for one errno
};

// The outcome for each failing call. A key is the beginning of the call: its name, if necessary with arguments, and
// "#2" at the end for the second of several equal calls. The longest matching key counts.
using Outcomes = std::map<std::string, Outcome>;

// Runs the scenario once to find its platform calls. Then lets each call that can fail do so, alone and together with
// all later calls, with errno 0, ENOENT and EACCES, and throw std::bad_alloc. When a call fails alone, result and log
// lines must be as expected. After every run everything must have been released, and the scenario must succeed again.
void sweep(const std::function<void()>& prepare, const std::function<std::string()>& run, const Outcomes& outcomes);

}  // namespace fake
