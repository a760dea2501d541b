// Large bodies share a room of fixed size; small ones are taken in also when large ones fill it.
#include "host/request_body.h"

#include <microhttpd.h>

namespace host {

namespace {

constexpr uint64_t kMaxAllBytes = 64 << 20;
constexpr uint64_t kSmallBytes = 16 << 10;

}  // namespace

int RequestBody::append(const char* pData, size_t size)
{
    if (m_text.size() + size > kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    m_text.append(pData, size);
    const bool isFull = (m_heldBytes += size) > kMaxAllBytes;
    return isFull && m_text.size() > kSmallBytes ? MHD_HTTP_SERVICE_UNAVAILABLE : 0;
}

void RequestBody::drop()
{
    m_heldBytes -= m_text.size();
    std::string().swap(m_text);
}

}  // namespace host
