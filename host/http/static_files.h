// Serves the files of the console's page to browsers.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include <microhttpd.h>

namespace host {

struct StaticFile {
    std::string bytes;
    std::string etag;         // hash of the bytes, in the quotes of the header
    const char* szType = "";  // media type
};

// The files of the page, held in memory: no path that a client sends reaches the file system. Without load() there are
// none. Load before other threads use the object; after that any thread may search it.
class StaticFiles {
public:
    // Reads the .css, .html, .js and .svg files of the folder, without hidden ones and subfolders. Throws
    // std::runtime_error when the folder has no index.html, cannot be read, or holds more than 16 MiB of such files.
    void load(const std::filesystem::path& folder);

    // Returns the file at that path of a URL, null when there is none. path: as the client sent it, not decoded.
    const StaticFile* find(std::string_view path) const;

private:
    std::map<std::string, StaticFile, std::less<>> m_files;  // by path
};

// Queues the file as the response of the connection, or 304 when the client has this version already. file: outlives
// the connection. closeAfterResponse: whether the connection ends with it. status: set to the HTTP status. Returns the
// library's result: MHD_NO when it closes the connection instead. Throws std::bad_alloc. Call it once per request, on
// the thread that serves the connection.
MHD_Result queueFile(MHD_Connection* pConnection, const StaticFile& file, bool closeAfterResponse, int& status);

}  // namespace host
