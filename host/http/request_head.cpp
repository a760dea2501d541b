// Reads the head of a request and decides whether the request is refused before any of its body is read.
#include "host/http/request_head.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

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

// What the headers of a request show about its framing.
struct Framing {
    const char* pNext = nullptr;  // where the name of the next header must begin; nullptr before the first one
    int lengths = 0;              // headers that define the length of the body
    int hosts = 0;
    bool isStrict = true;  // whether every line is "name: value", ends with CRLF, and holds no control character
};

bool isTokenCharacter(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || (c != '\0' && strchr("!#$%&'*+-.^_`|~", c) != nullptr);
}

bool isValueCharacter(char c)
{
    return c == '\t' || static_cast<unsigned char>(c) >= ' ';
}

// Reads one header. The library parses a head where it stands in memory and puts a NUL in place of each colon, CR and
// LF. So a gap between two headers shows a line that was folded, cut off at a NUL, or ended by a bare LF.
MHD_Result readFraming(void* pOut, MHD_ValueKind, const char* pName, size_t nameSize, const char* pValue,
                       size_t valueSize)
{
    Framing& framing = *static_cast<Framing*>(pOut);
    const std::string_view name(pName, nameSize), value(pValue == nullptr ? "" : pValue, valueSize);
    framing.isStrict &= framing.pNext == nullptr || framing.pNext == pName;
    framing.isStrict &= !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter) &&
                        std::all_of(value.begin(), value.end(), isValueCharacter);
    framing.pNext = value.data() + value.size() + strlen("\r\n");
    framing.hosts += strcasecmp(pName, MHD_HTTP_HEADER_HOST) == 0 ? 1 : 0;
    framing.lengths += strcasecmp(pName, MHD_HTTP_HEADER_CONTENT_LENGTH) == 0 ||
                               strcasecmp(pName, MHD_HTTP_HEADER_TRANSFER_ENCODING) == 0
                           ? 1
                           : 0;
    return MHD_YES;
}

// Whether a proxy in front of the server may have understood the head in another way than the library does: where its
// lines end, how long the body is, or for which host it is.
bool isAmbiguous(MHD_Connection* pConnection, const RequestLine& line)
{
    Framing framing;
    MHD_get_connection_values_n(pConnection, MHD_HEADER_KIND, readFraming, &framing);
    const size_t size = MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE)->header_size;
    const bool isWhole = framing.pNext == nullptr || framing.pNext + strlen("\r\n") == line.szMethod + size;
    const bool hasHost = framing.hosts == 1 || (framing.hosts == 0 && strcmp(line.szVersion, "HTTP/1.1") != 0);
    return !framing.isStrict || !isWhole || !hasHost || framing.lengths > 1;
}

// Returns what the path stands for if it is about the server itself.
Resource monitoringResource(const char* szPath)
{
    if (strcmp(szPath, "/health") == 0) {
        return Resource::health;
    }
    return strcmp(szPath, "/metrics") == 0 ? Resource::metrics : Resource::none;
}

// Finds the resource that the path stands for, with the row of a method or the file.
void resolvePath(const char* szPath, const ModuleSet& modules, const StaticFiles& page, RequestHead& head)
{
    char szApi[100], szVersion[19], szMethod[100];
    int end = 0;
    head.api = szPath;
    head.resource = monitoringResource(szPath);
    if (head.resource != Resource::none) {
        return;
    }
    head.pQuery = findQuery(szPath);
    if (head.pQuery != nullptr) {
        head.resource = Resource::query;
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

bool isGetOrHead(const char* szMethod)
{
    return strcmp(szMethod, MHD_HTTP_METHOD_GET) == 0 || strcmp(szMethod, MHD_HTTP_METHOD_HEAD) == 0;
}

bool isAllowed(const RequestHead& head, const char* szMethod)
{
    if (head.resource != Resource::method) {
        return isGetOrHead(szMethod);
    }
    return strcmp(szMethod, MHD_HTTP_METHOD_POST) == 0 || (onlyReads(*head.pRow) && isGetOrHead(szMethod));
}

// Adds a parameter of the URL to the head, unless the query does not take it or has it already.
MHD_Result addParameter(void* pHead, MHD_ValueKind, const char* szName, const char* szValue)
{
    RequestHead& head = *static_cast<RequestHead*>(pHead);
    std::string value = szValue == nullptr ? "" : szValue;
    value.resize(MHD_http_unescape(value.data()));
    if (head.pQuery->parameters.contains(szName) && store::isPlainText(value)) {
        head.parameters.emplace(szName, std::move(value));
    }
    return MHD_YES;
}

// Returns whether the URL has only parameters that the resource takes, each once. Those of a query go into the head.
bool readParameters(MHD_Connection* pConnection, RequestHead& head)
{
    const auto add = head.resource == Resource::query ? addParameter : nullptr;
    const int count = MHD_get_connection_values(pConnection, MHD_GET_ARGUMENT_KIND, add, &head);
    return static_cast<size_t>(count) == head.parameters.size();
}

// Checks that the request has no body, and no parameters that the resource does not take.
int checkGet(MHD_Connection* pConnection, RequestHead& head)
{
    const bool hasBody =
        declaredLength(pConnection) > 0 || *headerValue(pConnection, MHD_HTTP_HEADER_TRANSFER_ENCODING) != '\0';
    if (hasBody || !readParameters(pConnection, head)) {
        head.szRefusal = head.resource == Resource::query
                             ? "the query has a body, or a parameter that is unknown, repeated or not UTF-8"
                             : "GET takes neither a body nor a query; send parameters with POST";
        return MHD_HTTP_BAD_REQUEST;
    }
    head.knownTags = headerValue(pConnection, MHD_HTTP_HEADER_IF_NONE_MATCH);
    return 0;
}

bool needsToken(const RequestHead& head)
{
    return head.resource == Resource::method || head.resource == Resource::query || head.resource == Resource::metrics;
}

// Checks the headers of a request that needs a token. Checks the token first, so that a client without one gets no
// answer about its body.
int checkCall(MHD_Connection* pConnection, const char* szMethod, RequestHead& head)
{
    head.tokenHash = bearerTokenHash(headerValue(pConnection, MHD_HTTP_HEADER_AUTHORIZATION));
    if (head.tokenHash.empty()) {
        return MHD_HTTP_UNAUTHORIZED;
    }
    if (declaredLength(pConnection) > RequestBody::kMaxBytes) {
        return MHD_HTTP_CONTENT_TOO_LARGE;
    }
    const char* szEncoding = headerValue(pConnection, MHD_HTTP_HEADER_CONTENT_ENCODING);
    if (*szEncoding != '\0' && strcasecmp(szEncoding, "identity") != 0) {
        return MHD_HTTP_BAD_REQUEST;
    }
    head.coding = acceptedCoding(headerValue(pConnection, MHD_HTTP_HEADER_ACCEPT_ENCODING));
    return isGetOrHead(szMethod) ? checkGet(pConnection, head) : 0;
}

// Checks what is the same for all resources.
int checkResource(MHD_Connection* pConnection, const RequestLine& line, RequestHead& head)
{
    head.closeAfterResponse = isAmbiguous(pConnection, line);
    if (head.closeAfterResponse) {
        return MHD_HTTP_BAD_REQUEST;
    }
    if (head.resource == Resource::none) {
        return MHD_HTTP_NOT_FOUND;
    }
    return isAllowed(head, line.szMethod) ? 0 : MHD_HTTP_METHOD_NOT_ALLOWED;
}

}  // namespace

int checkHead(MHD_Connection* pConnection, const RequestLine& line, const ModuleSet& modules, const StaticFiles& page,
              RequestHead& head)
{
    resolvePath(line.szPath, modules, page, head);
    const int refusal = checkResource(pConnection, line, head);
    return refusal == 0 && needsToken(head) ? checkCall(pConnection, line.szMethod, head) : refusal;
}

int checkMetricsHead(MHD_Connection* pConnection, const RequestLine& line, RequestHead& head)
{
    head.api = line.szPath;
    head.resource = monitoringResource(line.szPath);
    return checkResource(pConnection, line, head);
}

const char* allowedMethods(const RequestHead& head)
{
    if (head.resource != Resource::method) {
        return "GET, HEAD";
    }
    return onlyReads(*head.pRow) ? "GET, HEAD, POST" : "POST";
}

bool sendsBodyImmediately(MHD_Connection* pConnection)
{
    const bool waits = strcasecmp(headerValue(pConnection, MHD_HTTP_HEADER_EXPECT), "100-continue") == 0;
    const bool isChunked = *headerValue(pConnection, MHD_HTTP_HEADER_TRANSFER_ENCODING) != '\0';
    return !waits && (isChunked || declaredLength(pConnection) > 0);
}

}  // namespace host
