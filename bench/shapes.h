// Defines the shapes and sizes of the fleets that the benchmarks measure, and runs a benchmark for each.
#pragma once

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace bench {

constexpr int64_t kPolicies = 1000;
constexpr int64_t kLinksPerGroup = 5;

// The parents of the groups 1, 2, ...; 0 is the root.
using Parents = std::vector<int64_t>;

struct Shape {
    const char* szName;
    Parents (*make)(int64_t groups);
};

// Every group has that many sub-groups, level by level.
inline Parents makeLevels(int64_t groups, int64_t width)
{
    Parents parents;
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(i / width);
    }
    return parents;
}

inline int64_t rootOf(int64_t groups, double degree)
{
    return std::max<int64_t>(2, std::llround(std::pow(static_cast<double>(groups), 1 / degree)));
}

inline Parents makeFlat(int64_t groups)
{
    return Parents(static_cast<size_t>(groups), 0);
}

inline Parents makeTwoLevels(int64_t groups)
{
    return makeLevels(groups, rootOf(groups, 2));
}

inline Parents makeFourLevels(int64_t groups)
{
    return makeLevels(groups, rootOf(groups, 4));
}

// Top-level groups with twenty sub-groups each.
inline Parents makeTwenties(int64_t groups)
{
    Parents parents;
    const int64_t tops = std::max<int64_t>(1, groups / 21);
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(i < tops ? 0 : (i - tops) % tops + 1);
    }
    return parents;
}

// Chains of a thousand groups, each below the one before.
inline Parents makeChains(int64_t groups)
{
    Parents parents;
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(i % 1000 == 0 ? 0 : i);
    }
    return parents;
}

inline Parents makeRandom(int64_t groups)
{
    std::mt19937_64 random(1);
    Parents parents;
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(std::uniform_int_distribution<int64_t>(0, i)(random));
    }
    return parents;
}

constexpr Shape kShapes[] = {{"flat", makeFlat},         {"two_levels", makeTwoLevels}, {"four_levels", makeFourLevels},
                             {"twenties", makeTwenties}, {"chains", makeChains},        {"random", makeRandom}};

// Returns the policy of one of a group's links; link counts from 0.
inline int64_t linkedPolicy(int64_t id, int64_t link)
{
    return (id * 7 + link) % kPolicies + 1;
}

// Returns the seconds that the work takes.
template <typename Work>
double seconds(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

using Measurement = std::function<void(benchmark::State&, const Shape&)>;

// Runs the named measurements on fleets of every shape and size; the argument of a benchmark is its number of groups.
inline int runForEachShape(int argc, char** argv, const std::vector<std::pair<std::string, Measurement>>& measurements)
{
    // Keep freed memory, as a server's allocator does, so that page faults are not measured.
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    benchmark::Initialize(&argc, argv);
    for (const Shape& shape : kShapes) {
        for (const auto& [name, measure] : measurements) {
            // Half of the nodes are groups: 1,000, 10,000 and 100,000 nodes.
            benchmark::RegisterBenchmark((name + "/" + shape.szName).c_str(), measure, shape)
                ->Arg(500)
                ->Arg(5000)
                ->Arg(50000)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace bench
