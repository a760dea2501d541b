// Serves the files of the console's page to browsers.
#include "host/http/static_files.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/base/digest.h"

namespace host {

namespace {

constexpr size_t kMaxBytes = 16 << 20;  // of all files; a larger folder cannot be the console's page

struct Pair {
    const char* szName;
    const char* szValue;
};

constexpr Pair kTypes[] = {
    {".css", "text/css; charset=utf-8"},
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".svg", "image/svg+xml; charset=utf-8"},
};

// The page may load from and call only this server, and no other page may frame it. So script that is injected into the
// page can neither run nor send a token to another server.
constexpr Pair kHeaders[] = {
    {MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache"},  // browsers keep the file but ask each time whether it changed
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
     "form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT_ENCODING},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
};

// Returns the media type of the file, null when the page never contains files of that type.
const char* typeOf(const std::filesystem::path& path)
{
    for (const Pair& type : kTypes) {
        if (path.extension() == type.szName) {
            return type.szValue;
        }
    }
    return nullptr;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return bytes;
}

std::vector<Representation> representationsOf(std::string bytes)
{
    const std::vector<std::string> content = {std::move(bytes)};
    std::vector<Representation> representations;
    for (const Coding coding : {Coding::identity, Coding::gzip, Coding::zstd}) {
        if (coding == Coding::identity || content[0].size() >= kMinBytesToCompress) {
            std::string encoded = compressed(coding, content);
            std::string etag = '"' + digestOf(encoded) + '"';
            representations.push_back({coding, std::move(encoded), std::move(etag)});
        }
    }
    return representations;
}

const char* headerOrNull(MHD_Connection* pConnection, const char* szName)
{
    return MHD_lookup_connection_value(pConnection, MHD_HEADER_KIND, szName);
}

// Returns whether the client has this version of the file.
bool isCached(MHD_Connection* pConnection, const std::string& etag)
{
    const char* szEtags = headerOrNull(pConnection, MHD_HTTP_HEADER_IF_NONE_MATCH);
    return szEtags != nullptr && (strcmp(szEtags, "*") == 0 || strstr(szEtags, etag.c_str()) != nullptr);
}

void addHeaders(MHD_Response* pResponse, const char* szType, const Representation& sent, bool closeAfterResponse)
{
    for (const Pair& header : kHeaders) {
        MHD_add_response_header(pResponse, header.szName, header.szValue);
    }
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_TYPE, szType);
    MHD_add_response_header(pResponse, MHD_HTTP_HEADER_ETAG, sent.etag.c_str());
    if (sent.coding != Coding::identity) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONTENT_ENCODING, nameOf(sent.coding));
    }
    if (closeAfterResponse) {
        MHD_add_response_header(pResponse, MHD_HTTP_HEADER_CONNECTION, "close");
    }
}

// Tells the page whether another site led to it, as the browser says. A script of the page can read no other header of
// its own response.
void addSite(MHD_Response* pResponse, MHD_Connection* pConnection)
{
    const char* szSite = headerOrNull(pConnection, "Sec-Fetch-Site");
    for (const char* szKnown : {"cross-site", "same-site", "same-origin", "none"}) {
        if (szSite != nullptr && strcmp(szSite, szKnown) == 0) {
            MHD_add_response_header(pResponse, "Server-Timing", (std::string("site;desc=") + szKnown).c_str());
        }
    }
}

}  // namespace

const Representation& StaticFile::preferredBy(Coding coding) const
{
    const auto found = std::find_if(representations.begin(), representations.end(),
                                    [coding](const Representation& it) { return it.coding == coding; });
    return found == representations.end() ? representations.front() : *found;
}

void StaticFiles::load(const std::filesystem::path& folder)
try {
    size_t total = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        const char* szType = typeOf(name);
        if (szType == nullptr || name.front() == '.' || !entry.is_regular_file()) {
            continue;
        }
        total += entry.file_size();
        if (total > kMaxBytes) {
            throw std::runtime_error(folder.string() + " is too large for the console's page");
        }
        m_files["/" + name] = {szType, representationsOf(readFile(entry.path()))};
    }
    if (const auto index = m_files.find("/index.html"); index != m_files.end()) {
        m_files["/"] = index->second;
        return;
    }
    throw std::runtime_error(folder.string() + " does not hold the console's page: it has no index.html");
} catch (const std::filesystem::filesystem_error& e) {
    throw std::runtime_error("the console's page cannot be read: " + folder.string() + ": " + e.code().message());
}

const StaticFile* StaticFiles::find(std::string_view path) const
{
    const auto file = m_files.find(path);
    return file == m_files.end() ? nullptr : &file->second;
}

MHD_Result queueFile(MHD_Connection* pConnection, const StaticFile& file, bool closeAfterResponse, int& status)
{
    const Coding coding = acceptedCoding(headerOrNull(pConnection, MHD_HTTP_HEADER_ACCEPT_ENCODING));
    const Representation& sent = file.preferredBy(coding);
    // The library sends no body with 304.
    status = isCached(pConnection, sent.etag) ? MHD_HTTP_NOT_MODIFIED : MHD_HTTP_OK;
    // The response refers to the bytes instead of copying them for each slow reader.
    MHD_Response* pResponse = MHD_create_response_from_buffer(sent.bytes.size(), const_cast<char*>(sent.bytes.data()),
                                                              MHD_RESPMEM_PERSISTENT);
    if (pResponse == nullptr) {
        throw std::bad_alloc();
    }
    addHeaders(pResponse, file.szType, sent, closeAfterResponse);
    addSite(pResponse, pConnection);
    const MHD_Result queued = MHD_queue_response(pConnection, static_cast<unsigned>(status), pResponse);
    MHD_destroy_response(pResponse);
    return queued;
}

}  // namespace host
