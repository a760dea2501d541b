// Bounds the memory that all requests of the process take together: their bodies, the values parsed from them, and
// their answers.
//
// Any thread may call these functions and use different objects; one thread at a time may use one object.
#pragma once

#include <cstdint>
#include <utility>

namespace host {

// Sets the bound in bytes. Before the first call there is none.
void setMemoryLimit(uint64_t bytes);

// Returns a bound for this machine, in bytes: half of its memory, or of the limit of the process's control group.
uint64_t defaultMemoryLimit();

// Returns how many bytes count: those of all shares, and what else the process has allocated, such as the values of
// which a running handler makes its answer.
uint64_t usedMemory();

// Returns the bound in bytes.
uint64_t memoryLimit();

// Returns by how many bytes the bound is exceeded, 0 when it is not.
uint64_t excessMemory();

// Gives memory that is no longer used back to the system, when there is much of it.
void releaseFreeMemory();

// A part of the bounded memory, which is given back when the object is destroyed.
class MemoryShare {
public:
    MemoryShare() = default;
    MemoryShare(MemoryShare&& other) noexcept : m_bytes(std::exchange(other.m_bytes, 0)) {}
    MemoryShare& operator=(const MemoryShare&) = delete;
    ~MemoryShare()
    {
        drop();
    }

    // Adds bytes for what is not allocated yet. Returns false, and adds nothing, when less than the size of the share
    // would stay free: so small requests still find memory when large ones do not. Shares of up to 16 KiB are always
    // granted.
    bool tryAdd(uint64_t bytes);

    // Adds bytes that exist already.
    void add(uint64_t bytes);

    // Makes the share empty.
    void drop();

private:
    uint64_t m_bytes = 0;
};

}  // namespace host
