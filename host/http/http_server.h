// The HTTP server: POST /webapi/{API}/{version}/{method} with a bearer token and a JSON object of parameters, and GET
// of the console's page at / and of its files.
#pragma once

#include <cstddef>
#include <string>

#include "host/calls/module_loader.h"
#include "host/http/page.h"
#include "store/store.h"

namespace host {

struct ServeOptions {
    std::string address = "127.0.0.1:8480";
    bool allowRemote = false;                         // both as for openListenSocket
    bool echoesFailures = false;                      // the modules' failure lines go to standard output, too
    size_t connections = store::kDefaultConnections;  // to the store; as many requests are handled at a time
    unsigned idleTimeout = 10;  // seconds until a connection is closed on which nothing moves and no handler is awaited
};

// Serves the modules' methods and the page until SIGTERM or SIGINT, then finishes the requests that have begun to
// arrive, for 30 seconds at most; the process ends at once, with status 0, when some are not finished then. Prints the
// address on standard output once it is ready, and a line per request and per change of the store in the log. modules,
// page: outlive the call. Call it once per process, from the main thread before it starts others. Throws
// std::runtime_error when it cannot start.
void serve(const ModuleSet& modules, const Page& page, const ServeOptions& options);

}  // namespace host
