// Sends an answer on its connection. The library sends the pieces of the text without copying them: a tree may have
// many megabytes, and several slow readers may share it.
#include "host/http/response.h"

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace host {

namespace {

MHD_Response* makeResponse(AnswerText text)
{
    auto pText = std::make_unique<AnswerText>(std::move(text));
    std::vector<MHD_IoVec> pieces;
    for (const std::string& part : **pText) {
        pieces.push_back({part.data(), part.size()});
    }
    MHD_Response* pResponse = MHD_create_response_from_iovec(
        pieces.data(), static_cast<unsigned>(pieces.size()),
        [](void* pOwned) { delete static_cast<AnswerText*>(pOwned); }, pText.get());
    if (pResponse == nullptr) {
        throw std::bad_alloc();
    }
    static_cast<void>(pText.release());  // the response owns it now
    return pResponse;
}

void addHeaders(MHD_Response* pResponse, const Answer& answer, const char* szAllowed, bool closeAfterResponse)
{
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_TYPE, answer.szType);
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT_ENCODING);
    if (answer.coding != Coding::identity) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_ENCODING, nameOf(answer.coding));
    }
    if (!answer.etag.empty()) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_ETAG, answer.etag.c_str());
    }
    if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_ALLOW, szAllowed);
    }
    if (answer.status == MHD_HTTP_UNAUTHORIZED) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Bearer");
    }
    if (closeAfterResponse) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONNECTION, "close");
    }
}

}  // namespace

MHD_Result queueAnswer(MHD_Connection* pConnection, const Answer& answer, const char* szAllowed,
                       bool closeAfterResponse)
{
    MHD_Response* pResponse = makeResponse(answer.text);
    addHeaders(pResponse, answer, szAllowed, closeAfterResponse);
    const MHD_Result queued = MHD_queue_response(pConnection, static_cast<unsigned>(answer.status), pResponse);
    MHD_destroy_response(pResponse);
    return queued;
}

}  // namespace host
