// The shapes of fleets that are measured, at any number of groups.
#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

constexpr int64_t kPolicies = 1000;
constexpr int64_t kLinksPerGroup = 5;

// parents[i] is the parent of group i + 1; 0 is the root.
using Parents = std::vector<int64_t>;

struct Shape {
    const char* szName;
    Parents (*make)(int64_t groups);
};

// Every level has the same number of groups below each group of the level above.
inline Parents levels(int64_t groups, int64_t width)
{
    Parents parents;
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(i / width);
    }
    return parents;
}

inline int64_t root(int64_t groups, double degree)
{
    return std::max<int64_t>(2, std::llround(std::pow(static_cast<double>(groups), 1 / degree)));
}

inline Parents makeFlat(int64_t groups)
{
    return Parents(static_cast<size_t>(groups), 0);
}

inline Parents makeTwoLevels(int64_t groups)
{
    return levels(groups, root(groups, 2));
}

inline Parents makeFourLevels(int64_t groups)
{
    return levels(groups, root(groups, 4));
}

// Many groups with twenty sub-groups each.
inline Parents makeTwenties(int64_t groups)
{
    Parents parents;
    const int64_t tops = std::max<int64_t>(1, groups / 21);
    for (int64_t i = 0; i < groups; ++i) {
        parents.push_back(i < tops ? 0 : (i - tops) % tops + 1);
    }
    return parents;
}

// Chains of a thousand groups below one another.
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

// The policy that link number link of group id names.
inline int64_t linkedPolicy(int64_t id, int64_t link)
{
    return (id * 7 + link) % kPolicies + 1;
}

// Seconds that the work takes.
template <typename Work>
double seconds(const Work& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace bench
