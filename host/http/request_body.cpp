// Collects the body of a request and limits the memory that the bodies of all requests take.
#include "host/http/request_body.h"

#include <utility>

#include <microhttpd.h>

namespace host {

namespace {

constexpr uint64_t kMaxAllBytes = 64 << 20;
constexpr uint64_t kMaxUnknownSendersBytes = 8 << 20;
constexpr uint64_t kSmallBytes = 16 << 10;  // a body of this size is accepted when large ones fill the memory

}  // namespace

void RequestBody::setSenderKnown()
{
    if (!std::exchange(m_isSenderKnown, true)) {
        m_memory.unknownSenders -= m_text.size();
    }
}

int RequestBody::append(const char* pData, size_t size)
{
    if (m_text.size() + size > kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    m_text.append(pData, size);
    bool isFull = (m_memory.all += size) > kMaxAllBytes;
    if (!m_isSenderKnown) {
        isFull |= (m_memory.unknownSenders += size) > kMaxUnknownSendersBytes;
    }
    return isFull && m_text.size() > kSmallBytes ? MHD_HTTP_SERVICE_UNAVAILABLE : 0;
}

void RequestBody::drop()
{
    m_memory.all -= m_text.size();
    if (!m_isSenderKnown) {
        m_memory.unknownSenders -= m_text.size();
    }
    std::string().swap(m_text);
}

}  // namespace host
