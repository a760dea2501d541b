// Collects the body of a request, within the limits on memory.
#include "host/http/request_body.h"

#include <utility>

#include <microhttpd.h>

namespace host {

namespace {

constexpr uint64_t kMaxUnknownSendersBytes = 8 << 20;
constexpr uint64_t kSmallBytes = 16 << 10;  // a body of this size is accepted when others fill the limit

}  // namespace

void RequestBody::setSenderKnown()
{
    if (!std::exchange(m_isSenderKnown, true)) {
        m_unknownSendersBytes -= m_text.size();
    }
}

int RequestBody::append(const char* pData, size_t size)
{
    if (m_text.size() + size > kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    if (!m_share.tryAdd(size)) {
        return MHD_HTTP_SERVICE_UNAVAILABLE;
    }
    m_text.append(pData, size);
    const bool isFull = !m_isSenderKnown && (m_unknownSendersBytes += size) > kMaxUnknownSendersBytes;
    return isFull && m_text.size() > kSmallBytes ? MHD_HTTP_SERVICE_UNAVAILABLE : 0;
}

void RequestBody::drop()
{
    if (!m_isSenderKnown) {
        m_unknownSendersBytes -= m_text.size();
    }
    std::string().swap(m_text);
    m_share.drop();
}

}  // namespace host
