// Reads the head of a request and decides whether the request is refused before any of its body is read.
#include "host/http/request_head.h"

#include <strings.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/calls/tokens.h"
#include "host/http/request_body.h"

namespace host {

namespace {

// Returns the value of a request header, "" when there is none.
const char* headerValue(MHD_Connection* pConnection, const char* szName)
{
    const char* szValue = MHD_lookup_connection_value(pConnection, MHD_HEADER_KIND, szName);
    return szValue == nullptr ? "" : szValue;
}

uint64_t declaredLength(MHD_Connection* pConnection)
{
    return strtoull(headerValue(pConnection, MHD_HTTP_HEADER_CONTENT_LENGTH), nullptr, 10);
}

// Whether the head defines the length of the body more than once: a proxy in front of the server may have read another
// length than the library does.
bool hasAmbiguousLength(MHD_Connection* pConnection)
{
    int lengths = 0;
    const auto count = [](void* pLengths, MHD_ValueKind, const char* szName, const char*) {
        const bool isLength = strcasecmp(szName, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0 ||
                              strcasecmp(szName, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0;
        *static_cast<int*>(pLengths) += isLength ? 1 : 0;
        return MHD_YES;
    };
    MHD_get_connection_values(pConnection, MHD_HEADER_KIND, count, &lengths);
    return lengths > 1;
}

// Finds the resource that the path stands for, with the row of a method or the file.
void resolvePath(const char* szPath, const ModuleSet& modules, const StaticFiles& page, RequestHead& head)
{
    char szApi[100], szVersion[19], szMethod[100];
    int end = 0;
    head.api = szPath;
    if (strcmp(szPath, "/health") == 0) {
        head.resource = Resource::health;
        return;
    }
    head.pFile = page.find(szPath);
    if (head.pFile != nullptr) {
        head.resource = Resource::file;
        return;
    }
    if (sscanf(szPath, "/webapi/%99[^/]/%18[0-9]/%99[^/]%n", szApi, szVersion, szMethod, &end) != 3 ||
        szPath[end] != '\0' || (szVersion[0] == '0' && szVersion[1] != '\0')) {
        return;
    }
    head.api = szApi;
    head.method = szMethod;
    head.pRow = modules.find(szApi, strtoll(szVersion, nullptr, 10), szMethod);
    head.resource = head.pRow == nullptr ? Resource::none : Resource::method;
}

bool isAllowed(Resource resource, const char* szMethod)
{
    if (resource == Resource::method) {
        return strcmp(szMethod, MHD_HTTP_METHOD_POST) == 0;
    }
    return strcmp(szMethod, MHD_HTTP_METHOD_GET) == 0 || strcmp(szMethod, MHD_HTTP_METHOD_HEAD) == 0;
}

// Checks the headers of a method call. The token comes first: a client without one learns nothing about its body.
int checkCall(MHD_Connection* pConnection, RequestHead& head)
{
    head.tokenHash = bearerTokenHash(headerValue(pConnection, MHD_HTTP_HEADER_AUTHORIZATION));
    if (head.tokenHash.empty()) {
        return MHD_HTTP_UNAUTHORIZED;
    }
    if (declaredLength(pConnection) > RequestBody::kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    const char* szEncoding = headerValue(pConnection, MHD_HTTP_HEADER_CONTENT_ENCODING);
    return *szEncoding == '\0' || strcasecmp(szEncoding, "identity") == 0 ? 0 : MHD_HTTP_BAD_REQUEST;
}

}  // namespace

int checkHead(MHD_Connection* pConnection, const char* szPath, const char* szMethod, const ModuleSet& modules,
              const StaticFiles& page, RequestHead& head)
{
    resolvePath(szPath, modules, page, head);
    head.closeAfterResponse = hasAmbiguousLength(pConnection);
    if (head.closeAfterResponse) {
        return MHD_HTTP_BAD_REQUEST;
    }
    if (head.resource == Resource::none) {
        return MHD_HTTP_NOT_FOUND;
    }
    if (!isAllowed(head.resource, szMethod)) {
        return MHD_HTTP_METHOD_NOT_ALLOWED;
    }
    return head.resource == Resource::method ? checkCall(pConnection, head) : 0;
}

const char* allowedMethods(Resource resource)
{
    return resource == Resource::method ? "POST" : "GET, HEAD";
}

bool sendsBodyImmediately(MHD_Connection* pConnection)
{
    const bool waits = strcasecmp(headerValue(pConnection, MHD_HTTP_HEADER_EXPECT), "100-continue") == 0;
    const bool isChunked = *headerValue(pConnection, MHD_HTTP_HEADER_TRANSFER_ENCODING) != '\0';
    return !waits && (isChunked || declaredLength(pConnection) > 0);
}

}  // namespace host
