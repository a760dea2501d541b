// Serves the files of the console's page to browsers.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <microhttpd.h>

#include "host/base/compression.h"

namespace host {

// A file in one coding.
struct Representation {
    Coding coding = Coding::identity;
    std::string bytes;
    std::string etag;  // hash of the bytes, in the quotes of the header
};

struct StaticFile {
    const char* szType = "";                      // media type
    std::vector<Representation> representations;  // in each coding, identity first; a small file only in that

    // Returns the representation for a client that prefers that coding.
    const Representation& preferredBy(Coding coding) const;
};

// The files of the page, held in memory in each coding: no path that a client sends reaches the file system. Without
// load() there are none. Load before other threads use the object; after that any thread may search it.
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

// Queues the file, in the coding that the client prefers, as the response of the connection, or 304 when the client has
// this version already. file: outlives the connection. closeAfterResponse: whether the connection ends with it. status:
// set to the HTTP status. Returns the library's result: MHD_NO when it closes the connection instead. Throws
// std::bad_alloc. Call it once per request, on the thread that serves the connection.
MHD_Result queueFile(MHD_Connection* pConnection, const StaticFile& file, bool closeAfterResponse, int& status);

}  // namespace host
