// The bodies of requests in memory, and the limits that keep clients from filling it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

// Bytes of all bodies that a server holds, and of those among them whose senders are not known. Any thread may use it.
struct BodyMemory {
    std::atomic<uint64_t> all{0};
    std::atomic<uint64_t> strangers{0};
};

// One body while it arrives and until it has been parsed. One thread at a time; each body may be another thread's.
class RequestBody {
public:
    static constexpr uint64_t kMaxBytes = 4 << 20;

    // Of a stranger. memory: outlives the body.
    explicit RequestBody(BodyMemory& memory) : m_memory(memory) {}
    RequestBody(const RequestBody&) = delete;
    RequestBody& operator=(const RequestBody&) = delete;
    ~RequestBody()
    {
        drop();
    }

    // The sender is an account's: from now on the body does not count among those of strangers.
    void recognise();

    // Takes in a piece of that many bytes. Returns 0, or the HTTP status of the limit that it breaks: 413 for this
    // body's own, 503 for one of all bodies or those of strangers together. The body is of no use then; drop it. Throws
    // std::bad_alloc.
    int append(const char* pData, size_t size);

    // Gives the memory back.
    void drop();

    const std::string& text() const
    {
        return m_text;
    }

private:
    BodyMemory& m_memory;
    std::string m_text;
    bool m_isStrangers = true;
};

}  // namespace host
