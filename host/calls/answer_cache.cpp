// Keeps answers of methods that only read, within a bound of memory.
#include "host/calls/answer_cache.h"

namespace host {

namespace {

constexpr size_t kOverhead = 1024;  // of an entry; in truth less

size_t bytesOf(const ReadKey& key, const Answer& answer)
{
    return kOverhead + key.body.capacity() + memoryOf(*answer.text);
}

}  // namespace

std::optional<Answer> AnswerCache::find(const ReadKey& key, Coding coding)
{
    const std::lock_guard lock(m_mutex);
    if (key.state != m_state) {
        m_entries.clear();
        m_uses.clear();
        m_bytes = 0;
        m_state = key.state;
    }
    const auto found = m_entries.find({key, coding});
    if (found == m_entries.end()) {
        return std::nullopt;
    }
    m_uses.splice(m_uses.end(), m_uses, found->second.use);
    return found->second.answer;
}

void AnswerCache::keep(const ReadKey& key, Coding coding, const Answer& answer)
{
    const size_t bytes = bytesOf(key, answer);
    std::list<const Key*> use{nullptr};
    const std::lock_guard lock(m_mutex);
    if (bytes > m_maxBytes || key.state != m_state) {
        return;
    }
    const auto [entry, isNew] = m_entries.try_emplace({key, coding}, answer, bytes, use.begin());
    if (!isNew) {
        return;
    }
    use.front() = &entry->first;
    m_uses.splice(m_uses.end(), use);
    m_bytes += bytes;
    while (m_bytes > m_maxBytes) {
        erase(*m_uses.front());
    }
}

size_t AnswerCache::bytes() const
{
    const std::lock_guard lock(m_mutex);
    return m_bytes;
}

void AnswerCache::erase(const Key& key)
{
    const auto entry = m_entries.find(key);
    m_bytes -= entry->second.bytes;
    m_uses.erase(entry->second.use);
    m_entries.erase(entry);
}

}  // namespace host
