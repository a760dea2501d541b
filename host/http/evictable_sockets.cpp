// Closes the oldest connections that serve no known account when there are too many of them.
#include "host/http/evictable_sockets.h"

#include <sys/socket.h>

#include <exception>

namespace host {

void EvictableSockets::add(int fd) noexcept
try {
    std::list<int> added{fd};
    const std::lock_guard lock(m_mutex);
    if (!m_positions.try_emplace(fd, added.begin()).second) {
        return;
    }
    m_sockets.splice(m_sockets.end(), added);
    if (m_sockets.size() > m_limit) {
        shutdown(m_sockets.front(), SHUT_RDWR);
        m_positions.erase(m_sockets.front());
        m_sockets.pop_front();
    }
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void EvictableSockets::remove(int fd)
{
    const std::lock_guard lock(m_mutex);
    if (const auto position = m_positions.extract(fd)) {
        m_sockets.erase(position.mapped());
    }
}

}  // namespace host
