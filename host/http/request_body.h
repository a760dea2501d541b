// Collects the body of a request and limits the memory that the bodies of all requests take.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

// Bytes of the bodies that a server holds. Any thread may use the object.
struct BodyMemory {
    std::atomic<uint64_t> all{0};
    std::atomic<uint64_t> unknownSenders{0};  // the bytes among them from senders without a known account
};

// One body, from the arrival of its first bytes until it has been parsed. One thread at a time may use the object.
class RequestBody {
public:
    static constexpr uint64_t kMaxBytes = 4 << 20;

    // The sender counts as unknown at first. memory: outlives the body.
    explicit RequestBody(BodyMemory& memory) : m_memory(memory) {}
    RequestBody(const RequestBody&) = delete;
    RequestBody& operator=(const RequestBody&) = delete;
    ~RequestBody()
    {
        drop();
    }

    // Removes the body, with the parts that are still to come, from the limit for unknown senders.
    void setSenderKnown();

    // Appends that many bytes. Returns 0, or the HTTP status when a limit is exceeded: 413 for the one on this body,
    // 503 for the one on all bodies or on those of unknown senders. Call drop() then. Throws std::bad_alloc.
    int append(const char* pData, size_t size);

    // Releases the memory.
    void drop();

    const std::string& text() const
    {
        return m_text;
    }

private:
    BodyMemory& m_memory;
    std::string m_text;
    bool m_isSenderKnown = false;
};

}  // namespace host
