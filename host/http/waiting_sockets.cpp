// The order of waiting is a list; a map finds a socket's place in it.
#include "host/http/waiting_sockets.h"

#include <sys/socket.h>

#include <exception>

namespace host {

void WaitingSockets::add(int fd) noexcept
try {
    std::list<int> added{fd};
    const std::lock_guard lock(m_mutex);
    if (!m_places.try_emplace(fd, added.begin()).second) {
        return;
    }
    m_sockets.splice(m_sockets.end(), added);
    if (m_sockets.size() > m_most) {
        shutdown(m_sockets.front(), SHUT_RDWR);
        m_places.erase(m_sockets.front());
        m_sockets.pop_front();
    }
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void WaitingSockets::remove(int fd)
{
    const std::lock_guard lock(m_mutex);
    if (const auto place = m_places.extract(fd)) {
        m_sockets.erase(place.mapped());
    }
}

}  // namespace host
