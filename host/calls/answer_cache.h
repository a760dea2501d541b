// Keeps answers of methods that only read, within a bound of memory.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "host/base/compression.h"
#include "host/calls/dispatch.h"

namespace host {

// What an answer depends on, besides its coding.
struct ReadKey {
    uint32_t uid;  // of the caller
    const VELQ::APIMethod* pRow;
    std::string body;   // as the client sent it
    std::string state;  // of the store, as storeState() names it

    auto operator<=>(const ReadKey&) const = default;
};

// Answers of the state of the store that was asked for last. The texts are shared with the requests that they are sent
// for. Any thread may use the object.
class AnswerCache {
public:
    // maxBytes: how much memory the answers may take; 0: none is kept.
    explicit AnswerCache(size_t maxBytes) : m_maxBytes(maxBytes) {}

    // Returns the answer to a client that asked for this coding, nothing when it is not kept. Drops the answers of all
    // other states.
    std::optional<Answer> find(const ReadKey& key, Coding coding);

    // Keeps the answer, unless it alone takes more than all answers may, or another state was asked for meanwhile.
    // Drops those that were not asked for the longest time. Throws std::bad_alloc.
    void keep(const ReadKey& key, Coding coding, const Answer& answer);

    // Returns how much memory the answers take.
    size_t bytes() const;

    size_t maxBytes() const
    {
        return m_maxBytes;
    }

private:
    using Key = std::pair<ReadKey, Coding>;

    struct Entry {
        Answer answer;
        size_t bytes;
        std::list<const Key*>::iterator use;
    };

    void erase(const Key& key);

    const size_t m_maxBytes;
    mutable std::mutex m_mutex;  // guards all members below
    std::string m_state;
    size_t m_bytes = 0;
    std::map<Key, Entry> m_entries;
    std::list<const Key*> m_uses;  // keys of the entries, the one that was asked for last is the last
};

}  // namespace host
