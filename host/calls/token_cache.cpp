// Remembers which account each token belonged to when it was last looked up.
#include "host/calls/token_cache.h"

namespace host {

namespace {

constexpr size_t kMaxTokens = 10000;

}  // namespace

AccountKey TokenCache::find(const std::string& tokenHash) const
{
    const std::lock_guard lock(m_mutex);
    const auto known = m_uids.find(tokenHash);
    return known == m_uids.end() ? kUnknownAccount : AccountKey{known->second};
}

void TokenCache::update(const std::string& tokenHash, std::optional<uint32_t> uid)
{
    const std::lock_guard lock(m_mutex);
    if (!uid) {
        m_uids.erase(tokenHash);
        return;
    }
    m_uids[tokenHash] = *uid;
    if (m_uids.size() > kMaxTokens) {
        m_uids.erase(m_uids.begin());  // any token: its next request waits once among those of unknown senders
    }
}

}  // namespace host
