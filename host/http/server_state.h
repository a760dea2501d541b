// What all requests of a server share.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <set>

#include "host/base/log.h"
#include "host/calls/handler_pool.h"
#include "host/calls/module_loader.h"
#include "host/calls/read_answers.h"
#include "host/calls/token_cache.h"
#include "host/http/client_address.h"
#include "host/http/connections.h"
#include "host/http/request_metrics.h"
#include "host/http/static_files.h"

namespace host {

// The state that all exchanges of a server share. Any thread may use it.
struct ServerState {
    const ModuleSet& modules;
    const StaticFiles& page;
    const std::set<AddressName> proxies;  // whose forwarded addresses count
    Connections connections;              // those to the main address
    TokenCache tokenCache{};
    std::atomic<uint64_t> unknownSendersBytes{0};  // of the bodies from senders without a known account
    ReadAnswers readAnswers;
    RequestMetrics requestMetrics{};
    LogRateLimit storeErrorLimit{};
    std::atomic<int> exchangeCount{0};    // exchanges that exist
    std::atomic<bool> isStopping{false};  // whether each connection is closed after its next answer, and health is 503
    std::atomic<bool> endsRequests{false};  // whether requests do not begin, and end before their next change
    const std::chrono::seconds longestRequest;
    HandlerPool handlers;
};

// An address on which the server listens. Any thread may use it.
struct Listener {
    ServerState& server;
    Connections& connections;
    const bool isForMetrics;  // whether it serves only the metrics and the health, which then need no token
};

}  // namespace host
