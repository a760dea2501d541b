// Large bodies share a room of fixed size, of which those of strangers get a part; small ones are taken in also when
// large ones fill it.
#include "host/http/request_body.h"

#include <utility>

#include <microhttpd.h>

namespace host {

namespace {

constexpr uint64_t kMaxAllBytes = 64 << 20;
constexpr uint64_t kMaxStrangersBytes = 8 << 20;
constexpr uint64_t kSmallBytes = 16 << 10;

}  // namespace

void RequestBody::recognise()
{
    if (std::exchange(m_isStrangers, false)) {
        m_memory.strangers -= m_text.size();
    }
}

int RequestBody::append(const char* pData, size_t size)
{
    if (m_text.size() + size > kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    m_text.append(pData, size);
    bool isFull = (m_memory.all += size) > kMaxAllBytes;
    if (m_isStrangers) {
        isFull |= (m_memory.strangers += size) > kMaxStrangersBytes;
    }
    return isFull && m_text.size() > kSmallBytes ? MHD_HTTP_SERVICE_UNAVAILABLE : 0;
}

void RequestBody::drop()
{
    m_memory.all -= m_text.size();
    if (m_isStrangers) {
        m_memory.strangers -= m_text.size();
    }
    std::string().swap(m_text);
}

}  // namespace host
