// Reads the head of a request and decides whether the request is refused before any of its body is read.
#pragma once

#include <map>
#include <string>

#include <microhttpd.h>

#include "host/base/compression.h"
#include "host/calls/module_loader.h"
#include "host/calls/queries.h"
#include "host/http/static_files.h"
#include "store/store.h"

namespace host {

// The kind of resource that a path names.
enum class Resource {
    none,
    method,   // a method of a module, to be called
    query,    // something that the server answers out of the store
    health,   // the state of the store, for a proxy or monitor
    metrics,  // numbers about the server
    file,     // a file of the console's page, for which no token is needed
};

struct RequestHead {
    Resource resource = Resource::none;
    std::string api, method;  // as the client wrote them; api is the whole path when the path names no method
    const VELQ::APIMethod* pRow = nullptr;          // the method's table row, for Resource::method
    const QueryRow* pQuery = nullptr;               // for Resource::query
    const StaticFile* pFile = nullptr;              // for Resource::file
    std::map<std::string, std::string> parameters;  // of the URL, decoded, for Resource::query
    std::string tokenHash;                          // of the bearer token
    Coding coding = Coding::identity;               // in which the client prefers the answer
    std::string knownTags;                          // of GET and HEAD: the If-None-Match header
    const char* szRefusal = "";       // why the request is refused; empty: the text for its status says it
    store::Account account;           // the sender's, empty until the token was looked up
    bool closeAfterResponse = false;  // whether the connection cannot be used for another request
};

// The request line, as the HTTP library passes it on: where it received it, in front of the headers.
struct RequestLine {
    const char* szPath;  // as the client sent it, not decoded
    const char* szMethod;
    const char* szVersion;  // of HTTP
};

// Reads the head of a request into head and checks it, without looking the token up. Returns 0, or the HTTP status of
// the refusal (400, 401, 404, 405, 413). Throws std::bad_alloc; head is then partly filled. Call it on the thread that
// serves the connection.
int checkHead(MHD_Connection* pConnection, const RequestLine& line, const ModuleSet& modules, const StaticFiles& page,
              RequestHead& head);

// Does the same for the second address, which serves only the metrics and the health, without a token.
int checkMetricsHead(MHD_Connection* pConnection, const RequestLine& line, RequestHead& head);

// Returns the HTTP methods that the resource takes, as a header lists them.
const char* allowedMethods(const RequestHead& head);

// Returns whether the client sends a body without waiting for "100 Continue". Call it on the thread that serves the
// connection.
bool sendsBodyImmediately(MHD_Connection* pConnection);

}  // namespace host
