// Sends a JSON answer on its connection. The library takes over the parts without copying them: a tree may have many
// megabytes.
#include "host/http/response.h"

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace host {

namespace {

MHD_Response* makeResponse(std::vector<std::string> parts)
{
    auto pParts = std::make_unique<std::vector<std::string>>(std::move(parts));
    std::vector<MHD_IoVec> pieces;
    for (const std::string& part : *pParts) {
        pieces.push_back({part.data(), part.size()});
    }
    MHD_Response* pResponse = MHD_create_response_from_iovec(
        pieces.data(), static_cast<unsigned>(pieces.size()),
        [](void* pOwned) { delete static_cast<std::vector<std::string>*>(pOwned); }, pParts.get());
    if (pResponse == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(pParts.release());  // the response owns them now
    return pResponse;
}

void addHeaders(MHD_Response* pResponse, int status, const char* szAllowed, bool closeAfterResponse)
{
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_TYPE, "application/json");
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    if (status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_ALLOW, szAllowed);
    }
    if (status == MHD_HTTP_UNAUTHORIZED) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    }
    if (closeAfterResponse) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONNECTION, "close");
    }
}

}  // namespace

MHD_Result queueAnswer(MHD_Connection* pConnection, Answer answer, const char* szAllowed, bool closeAfterResponse)
{
    MHD_Response* pResponse = makeResponse(std::move(answer.parts));
    addHeaders(pResponse, answer.status, szAllowed, closeAfterResponse);
    const MHD_Result queued = MHD_queue_response(pConnection, static_cast<unsigned>(answer.status), pResponse);
    MHD_destroy_response(pResponse);
    return queued;
}

}  // namespace host
