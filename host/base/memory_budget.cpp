// Bounds the memory that all requests of the process take together.
#include "host/base/memory_budget.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>

// Of tcmalloc, which is not there when the program is built with a sanitizer.
extern "C" {
[[gnu::weak]] int MallocExtension_GetNumericProperty(const char* szProperty, size_t* pValue);
[[gnu::weak]] void MallocExtension_ReleaseToSystem(size_t bytes);
}

namespace host {

namespace {

constexpr uint64_t kSmallShare = 16 << 10;
constexpr uint64_t kMaxFreeMemory = 32 << 20;  // that an idle process keeps for its next requests
constexpr uint64_t kReleasedPart = 8;          // of the rest, at each call
constexpr std::chrono::milliseconds kMeasureInterval{5};

std::atomic<uint64_t> limitBytes{std::numeric_limits<uint64_t>::max()};
std::atomic<uint64_t> sharedBytes{0};     // of all shares
std::atomic<uint64_t> unsharedBytes{0};   // allocated by the process for anything else, when it was measured last
std::atomic<int64_t> nextMeasurement{0};  // on the steady clock

size_t allocatorProperty(const char* szProperty)
{
    size_t value = 0;
    if (MallocExtension_GetNumericProperty != nullptr) {
        MallocExtension_GetNumericProperty(szProperty, &value);
    }
    return value;
}

void measure()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    int64_t due = nextMeasurement;
    const int64_t next = std::chrono::nanoseconds(now + kMeasureInterval).count();
    if (std::chrono::nanoseconds(now).count() >= due && nextMeasurement.compare_exchange_strong(due, next)) {
        const uint64_t allocated = allocatorProperty("generic.current_allocated_bytes");
        unsharedBytes = allocated - std::min<uint64_t>(allocated, sharedBytes);
    }
}

// Returns the number in the file, the largest one when there is none: "max" stands for no limit.
uint64_t limitIn(const std::string& path)
{
    uint64_t limit = 0;
    return std::ifstream(path) >> limit ? limit : std::numeric_limits<uint64_t>::max();
}

// Returns the smallest limit of the control group and those around it.
uint64_t limitOfGroups(const std::string& root, std::string group, const char* szFile)
{
    uint64_t limit = limitIn(root + '/' + szFile);
    while (group.size() > 1) {
        limit = std::min(limit, limitIn(root + group + '/' + szFile));
        group.resize(group.rfind('/'));
    }
    return limit;
}

// Returns the limit of the process's control group. A line of the file is "number:controllers:path"; version 2 has no
// controllers.
uint64_t controlGroupLimit()
{
    uint64_t limit = std::numeric_limits<uint64_t>::max();
    std::ifstream file("/proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        const size_t controllers = line.find(':') + 1;
        const size_t path = line.find('/');
        if (controllers == 0 || path == line.npos) {
            continue;
        }
        const std::string names = line.substr(controllers, path - controllers);
        if (names == ":") {
            limit = std::min(limit, limitOfGroups("/sys/fs/cgroup", line.substr(path), "memory.max"));
        } else if (names == "memory:") {
            limit = std::min(limit, limitOfGroups("/sys/fs/cgroup/memory", line.substr(path), "memory.limit_in_bytes"));
        }
    }
    return limit;
}

}  // namespace

void setMemoryLimit(uint64_t bytes)
{
    limitBytes = bytes;
}

uint64_t defaultMemoryLimit()
{
    const auto machine = static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    return std::min(machine, controlGroupLimit()) / 2;
}

uint64_t usedMemory()
{
    measure();
    return sharedBytes + unsharedBytes;
}

uint64_t memoryLimit()
{
    return limitBytes;
}

uint64_t excessMemory()
{
    const uint64_t used = usedMemory();
    return used - std::min<uint64_t>(used, limitBytes);
}

void releaseFreeMemory()
{
    const uint64_t free = allocatorProperty("tcmalloc.pageheap_free_bytes");
    if (MallocExtension_ReleaseToSystem != nullptr && free > kMaxFreeMemory) {
        MallocExtension_ReleaseToSystem((free - kMaxFreeMemory) / kReleasedPart);
    }
}

bool MemoryShare::tryAdd(uint64_t bytes)
{
    if (m_bytes + bytes > kSmallShare && usedMemory() + bytes + m_bytes + bytes > limitBytes) {
        return false;
    }
    add(bytes);
    return true;
}

void MemoryShare::add(uint64_t bytes)
{
    m_bytes += bytes;
    sharedBytes += bytes;
}

void MemoryShare::drop()
{
    sharedBytes -= std::exchange(m_bytes, 0);
}

}  // namespace host
