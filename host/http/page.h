// The console's page: the files that browsers are given.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include <microhttpd.h>

namespace host {

struct PageFile {
    std::string bytes;
    std::string etag;  // of the bytes, with its quotes
    const char* szType = "";
};

// What is served is read once: no path of a client's reaches the file system. A page without files serves nothing.
// Load before other threads look anything up; from then on any thread may.
class Page {
public:
    // Reads the files of the folder whose type a page may have; its folders and hidden files are left out. Throws
    // std::runtime_error when it has no index.html, cannot be read, or is larger than a page may be.
    void load(const std::filesystem::path& folder);

    // The file at that path of a URL, which is as it was sent, without decoding; null when there is none.
    const PageFile* find(std::string_view path) const;

private:
    std::map<std::string, PageFile, std::less<>> m_files;  // by path
};

// Queues the file as the connection's response, 304 when the client has it already. file: outlives the connection.
// isLast: the connection is closed after it. status: set to the answer's. Returns what the library says, MHD_NO when it
// closes the connection instead. Throws std::bad_alloc. To be called once per request, on the thread that serves the
// connection.
MHD_Result queueFile(MHD_Connection* pConnection, const PageFile& file, bool isLast, int& status);

}  // namespace host
