// Implements the sweep of failing platform calls.
#include "tests/sweep.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include <gtest/gtest.h>

namespace fake {
namespace {

constexpr char kDenied[] = "denied: ";

bool containsErrno(const std::string& line)
{
    const auto texts = {"Failed [", "bad parameter", "malloc hash failed", "lib: ", kDenied};
    return std::any_of(texts.begin(), texts.end(), [&](const char* szText) { return line.starts_with(szText); });
}

Lines expectedLines(const Outcome& outcome, const std::string& call, int err)
{
    Lines lines;
    for (std::string line : split(outcome.lines)) {
        if (line.starts_with(kDenied) && err != EACCES) {
            continue;
        }
        if (const size_t mark = line.find('$'); mark != std::string::npos) {
            line.replace(mark, 1, call.substr(call.rfind(' ') + 1));
        }
        lines.push_back(containsErrno(line) ? withErrno(line, err) : line);
    }
    return lines;
}

const std::string& expectedResult(const Outcome& outcome, const std::string& success, int err)
{
    const auto it = outcome.resultByErrno.find(err);
    const std::string& result = it == outcome.resultByErrno.end() ? outcome.result : it->second;
    return result.empty() ? success : result;
}

const Outcome* outcomeOf(const Outcomes& outcomes, const std::string& call)
{
    const Outcome* pFound = nullptr;
    for (const auto& [begin, outcome] : outcomes) {
        pFound = call.starts_with(begin) ? &outcome : pFound;  // the map is sorted: longer keys come later
    }
    return pFound;
}

}  // namespace

void sweep(const std::function<void()>& prepare, const std::function<std::string()>& run, const Outcomes& outcomes)
{
    const auto runFailing = [&](size_t first, size_t last, int err) {
        prepare();
        platform.failFirst = first;
        platform.failLast = last;
        platform.failErrno = err;
        return run();
    };
    const std::string success = runFailing(0, 0, 0);
    const Lines calls = platform.fallible;
    for (size_t n = 1; n <= calls.size(); ++n) {
        const auto before = std::count(calls.begin(), calls.begin() + static_cast<ptrdiff_t>(n) - 1, calls[n - 1]);
        const std::string again = before == 0 ? "" : "#" + std::to_string(before + 1);
        const Outcome* pOutcome = outcomeOf(outcomes, calls[n - 1] + again);
        ASSERT_NE(pOutcome, nullptr) << calls[n - 1];
        for (const int err : {0, ENOENT, EACCES}) {
            SCOPED_TRACE(calls[n - 1] + " as call " + std::to_string(n) + ", errno " + std::to_string(err));
            EXPECT_EQ(runFailing(n, n, err), expectedResult(*pOutcome, success, err));
            EXPECT_EQ(platform.logs, expectedLines(*pOutcome, calls[n - 1], err));
            EXPECT_EQ(runFailing(0, 0, 0), success);
            runFailing(n, SIZE_MAX, err);
            EXPECT_EQ(runFailing(0, 0, 0), success) << "after this call and all later ones failed";
        }
        prepare();
        platform.failFirst = platform.failLast = n;
        platform.isThrowing = true;
        EXPECT_THROW(run(), std::bad_alloc) << calls[n - 1];
        EXPECT_EQ(runFailing(0, 0, 0), success) << "after an exception";
    }
    reset();
}

}  // namespace fake
