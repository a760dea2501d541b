// Remembers which account each token belonged to when it was last looked up. The answer decides only in which account's
// queue a request waits; it never grants access.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/calls/fair_queue.h"

namespace host {

// Holds the accounts of at most 10,000 tokens, by the tokens' hashes. Any thread may use the object.
class TokenCache {
public:
    // Returns the account of the token, kUnknownAccount when the cache does not have it.
    AccountKey find(const std::string& tokenHash) const;

    // Stores the result of a look-up. uid: the account's; nothing when no account has the token, which is then removed
    // from the cache. A full cache drops any other token. Throws std::bad_alloc.
    void update(const std::string& tokenHash, std::optional<uint32_t> uid);

private:
    mutable std::mutex m_mutex;  // guards the map
    std::unordered_map<std::string, uint32_t> m_uids;
};

}  // namespace host
