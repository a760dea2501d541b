// Runs the HTTP server: POST /webapi/{API}/{version}/{method} with a bearer token and a JSON object of parameters, GET
// of the methods that only read, GET /health and /metrics, and GET of the console's page at / and of its files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/calls/module_loader.h"
#include "host/http/static_files.h"
#include "store/store.h"

namespace host {

struct ServeOptions {
    std::string address = "127.0.0.1:8480";           // as for openListenSocket
    int listenFd = -1;                                // what openListenSocket returned
    std::string metricsAddress{};                     // as for openListenSocket; empty: none
    int metricsFd = -1;                               // what openListenSocket returned for it
    bool allowRemote = false;                         // as for openListenSocket
    bool echoesFailures = false;                      // whether the modules' failure lines go to standard output, too
    size_t connections = store::kDefaultConnections;  // to the store; also the number of handlers that accounts share
    unsigned requestSeconds = 60;                     // from which on a request makes no further change
    size_t keptAnswersMib = 64;                       // for kept answers, at most a quarter of all memory; 0: none
    size_t memoryMib = 0;                             // for all requests together; 0: half of the machine's
    std::vector<std::string> proxies{};  // numeric addresses of proxies; the client addresses that they forward count
    store::Quota quota{};                // for each delegate
    int historyDays = 400;               // how long changes stay in the history; 0: none is kept
    unsigned drainSeconds = 0;           // from the signal to stop until the server stops listening
    unsigned idleTimeout = 10;  // seconds until an idle connection is closed; waiting for a handler is not idle
};

// Serves the modules' methods and the page until SIGTERM or SIGINT. Prints the address on standard output when it is
// ready, and logs each request and each change of the store. After the signal, for the drain time or until a second
// signal, it answers GET /health with 503 and everything else as before. Then it finishes the requests that have begun
// to arrive; from the third second on, these make no further change. It waits five seconds for requests that
// still arrive and answers that are still read, and 30 seconds for handlers; then it ends the process with status 0.
//
// modules, page: outlive the call. Call it once per process, from the main thread before that starts others. Throws
// std::runtime_error when the server cannot start.
void serve(const ModuleSet& modules, const StaticFiles& page, const ServeOptions& options);

}  // namespace host
