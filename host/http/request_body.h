// Collects the body of a request, within the limits on memory.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/base/memory_budget.h"

namespace host {

// One body, from the arrival of its first bytes until it has been parsed. One thread at a time may use the object.
class RequestBody {
public:
    static constexpr uint64_t kMaxBytes = 4 << 20;

    // The sender counts as unknown at first. unknownSendersBytes: the bytes of all bodies from unknown senders;
    // outlives the body.
    explicit RequestBody(std::atomic<uint64_t>& unknownSendersBytes) : m_unknownSendersBytes(unknownSendersBytes) {}
    RequestBody(const RequestBody&) = delete;
    RequestBody& operator=(const RequestBody&) = delete;
    ~RequestBody()
    {
        drop();
    }

    // Removes the body, with the parts that are still to come, from the limit for unknown senders.
    void setSenderKnown();

    // Appends that many bytes. Returns 0, or the HTTP status when a limit is exceeded: 413 for the one on this body,
    // 503 for the one on the memory of all requests or on the bodies of unknown senders. Call drop() then. Throws
    // std::bad_alloc.
    int append(const char* pData, size_t size);

    // Releases the memory.
    void drop();

    const std::string& text() const
    {
        return m_text;
    }

private:
    std::atomic<uint64_t>& m_unknownSendersBytes;
    MemoryShare m_share;
    std::string m_text;
    bool m_isSenderKnown = false;
};

}  // namespace host
