// The HTTP server: POST /webapi/{API}/{version}/{method} with a bearer token and a JSON object of parameters.
#pragma once

#include <string>

#include "host/module_loader.h"

namespace host {

// Serves the modules' methods until SIGTERM or SIGINT, then finishes the requests that are running, for 30 seconds at
// most; the process ends at once, with status 0, when some are not finished then. Prints the address on standard output
// once it is ready, and a line per request on standard error.
// modules: outlives the call. address, allowRemote: as for openListenSocket.
// Call it once per process, from the main thread before it starts others. Throws std::runtime_error when it cannot
// start.
void serve(const ModuleSet& modules, const std::string& address, bool allowRemote);

}  // namespace host
