// Whose a token was when it was last looked up: enough to share the server out before a request is looked at, never to
// let one in.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/calls/fair_queue.h"

namespace host {

// Any thread may call it.
class TokenCache {
public:
    // The account of the token, kUnknownAccount when it is not known.
    AccountKey find(const std::string& tokenHash) const;

    // The token was looked up. uid: its account's; nothing when it is nobody's. Another token may be forgotten for it.
    // Throws std::bad_alloc.
    void update(const std::string& tokenHash, std::optional<uint32_t> uid);

private:
    mutable std::mutex m_mutex;  // guards the map
    std::unordered_map<std::string, uint32_t> m_uids;
};

}  // namespace host
