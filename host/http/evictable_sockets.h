// Closes the oldest connections that serve no known account when there are too many of them.
#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <unordered_map>

namespace host {

// The sockets on which no request of a known account is in progress, the oldest first. A client could keep any number
// of such connections open by sending a byte now and then, until the server can accept no others. Beyond a limit, the
// oldest socket is therefore shut down.
//
// The caller owns the sockets and closes those that are shut down. Any thread may use the object.
class EvictableSockets {
public:
    // limit: how many sockets the object may hold.
    explicit EvictableSockets(size_t limit) : m_limit(limit) {}

    // Adds the socket as the youngest, unless it is there already. Shuts down the oldest one when there are too many,
    // and this one when memory runs out.
    void add(int fd) noexcept;

    // Removes the socket if it is there. Call it before the socket is closed, because its number can then be that of a
    // new one.
    void remove(int fd);

private:
    const size_t m_limit;
    std::mutex m_mutex;  // guards the members below, and keeps their sockets from being closed meanwhile
    std::list<int> m_sockets;
    std::unordered_map<int, std::list<int>::iterator> m_positions;  // in the list, by socket
};

}  // namespace host
