// The bodies of requests in memory, and the limits that keep clients from filling it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

// One body while it arrives and until it has been parsed. One thread at a time; each body may be another thread's.
class RequestBody {
public:
    static constexpr uint64_t kMaxBytes = 4 << 20;

    // heldBytes: counts the bytes of all bodies that are held; outlives this one.
    explicit RequestBody(std::atomic<uint64_t>& heldBytes) : m_heldBytes(heldBytes) {}
    RequestBody(const RequestBody&) = delete;
    RequestBody& operator=(const RequestBody&) = delete;
    ~RequestBody()
    {
        drop();
    }

    // Takes in a piece of that many bytes. Returns 0, or the HTTP status of the limit that it breaks: 413 for this
    // body's own, 503 for the one of all bodies together. The body is of no use then; drop it.
    int append(const char* pData, size_t size);

    // Gives the memory back.
    void drop();

    const std::string& text() const
    {
        return m_text;
    }

private:
    std::atomic<uint64_t>& m_heldBytes;
    std::string m_text;
};

}  // namespace host
