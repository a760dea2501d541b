// Writes the metrics of the server in the text format of Prometheus.
#pragma once

#include "host/calls/dispatch.h"
#include "host/http/server_state.h"

namespace host {

// Returns the metrics as they are now. They contain nothing of the fleet: no names, accounts or identifiers. Does not
// wait for the store. Throws std::bad_alloc. Any thread may call it.
Answer metricsAnswer(const ServerState& server);

}  // namespace host
