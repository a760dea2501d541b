// Room for clients that are served, when others hold connections open without asking for anything.
#pragma once

#include <cstddef>
#include <list>
#include <mutex>
#include <unordered_map>

namespace host {

// Sockets on which no request of a known account is under way, the longest waiting first. Any number of them could stay
// by sending a byte now and then, and keep all others out: when there are too many, the first one makes room.
// The sockets belong to the caller; this only shuts some down, and their owner then closes them. Any thread may call
// it.
class WaitingSockets {
public:
    // most: how many may wait at a time.
    explicit WaitingSockets(size_t most) : m_most(most) {}

    // The socket waits from now on; one that waits already keeps its place. It is shut down when no memory is left to
    // remember it.
    void add(int fd) noexcept;

    // The socket waits no longer, if it did. To be called before it is closed, when its number may come to name
    // another.
    void remove(int fd);

private:
    const size_t m_most;
    std::mutex m_mutex;  // guards the two below, and that what they hold is not closed yet
    std::list<int> m_sockets;
    std::unordered_map<int, std::list<int>::iterator> m_places;
};

}  // namespace host
