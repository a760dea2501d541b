// What the head of a request says, and whether the request is refused for it before any of its body is taken in.
#pragma once

#include <string>

#include <microhttpd.h>

#include "host/calls/module_loader.h"
#include "host/http/page.h"
#include "store/store.h"

namespace host {

// What a path stands for.
enum class Resource {
    none,
    method,  // of a module, to be called
    health,  // whether the store answers, for who watches the server
    file,    // of the console's page; nobody needs a token for it
};

struct RequestHead {
    Resource resource = Resource::none;
    std::string api, method;                // as the client wrote them; a path of another form is all in api
    const VELQ::APIMethod* pRow = nullptr;  // the module's; null when none offers the method
    const PageFile* pFile = nullptr;        // the page's; null unless the path is one's
    std::string tokenHash;                  // of the bearer token
    store::Account account;                 // the token's; empty before it was looked up
    bool isLast = false;                    // the connection cannot be used for another request
};

// Reads a request's head into head and judges it, on the thread that serves the connection. szPath: as it was sent,
// without decoding; szMethod: of HTTP. Returns the HTTP status of the refusal (400, 401, 404, 405, 413), 0 for none;
// the token may still be nobody's. Throws std::bad_alloc; what was read before is in head then.
int checkHead(MHD_Connection* pConnection, const char* szPath, const char* szMethod, const ModuleSet& modules,
              const Page& page, RequestHead& head);

// The HTTP methods that the resource takes, as a header lists them.
const char* allowedMethods(Resource resource);

// Whether the client sends a body without waiting to be told so. On the thread that serves the connection.
bool sendsBodyUnasked(MHD_Connection* pConnection);

}  // namespace host
