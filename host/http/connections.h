// Bounds the connections of each sender, and ends those that are too slow or whose answers take too much memory.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

#include "host/calls/dispatch.h"

namespace host {

struct ConnectionLimits {
    size_t all;         // connections that the server keeps, besides those that have just come
    size_t perAddress;  // connections from an address on which no request of a known account is in progress
    size_t perAccount;  // connections on which a request of the account is in progress
    std::chrono::steady_clock::duration headTime;    // for the head of a request, from the end of the one before
    std::chrono::steady_clock::duration bodyTime;    // for its body
    std::chrono::steady_clock::duration readWindow;  // in which a client takes at least 1 KiB a second of its answer
};

// The open connections, each with its sender: the address that it comes from, or the account whose request is in
// progress. When a sender has too many, its oldest connection is shut down; when all senders together have, the oldest
// one of the sender with the most. So no sender keeps the others from connecting.
//
// Connections are named by their sockets. The caller owns these and closes those that are shut down. Any thread may use
// the object. A connection for which there is no memory is shut down.
class Connections {
public:
    explicit Connections(const ConnectionLimits& limits) : m_limits(limits) {}

    // A client has connected. sender: its address, empty for a proxy, which may have any number of connections.
    void open(int fd, const std::string& sender) noexcept;

    // The head of a request has arrived. sender: empty when it is not known better than before.
    void beginRequest(int fd, const std::string& sender) noexcept;

    // The request in progress turns out to be the account's.
    void setAccount(int fd, int64_t uid) noexcept;

    // The request has arrived completely; from now on the client waits for the server.
    void endArrival(int fd);

    // The answer is being sent.
    void beginAnswer(int fd, const AnswerText& text);

    // The request is over. The connection counts to the address again that opened it.
    void endRequest(int fd) noexcept;

    // The socket is about to be closed. Call it before its number can be that of a new connection.
    void close(int fd);

    // Shuts down the connections whose request or whose reading of the answer takes too long. Call it every second.
    void endSlow();

    // Shuts down the connections whose answers take the most memory until that many bytes become free. An answer that
    // several of them wait for counts for each with its part. Leaves those with an answer of up to 16 KiB.
    void freeMemory(uint64_t bytes) noexcept;

    // The open connections, their limit, and counts since the start.
    struct Counts {
        size_t open, limit;
        uint64_t opened;
        uint64_t overLimit, slow, forMemory;  // connections that the server closed, by reason
    };
    Counts counts() const;

private:
    using Clock = std::chrono::steady_clock;
    using Group = std::pair<const std::string, std::list<int>>;  // a sender and its sockets, the oldest first

    struct Connection {
        std::string address;  // the sender when no request is in progress
        bool isShutDown = false;
        Group* pGroup = nullptr;           // the sender's; nullptr after it was shut down
        std::list<int>::iterator place{};  // in the group
        Clock::time_point deadline = Clock::time_point::max();
        AnswerText answer{};  // that is being sent
        uint64_t takenBefore = 0;
        Clock::time_point windowEnd{};
    };

    // The caller of the functions below holds the mutex.
    void moveTo(int fd, Connection& connection, const std::string& sender);
    void leaveGroup(Connection& connection);
    void noteSize(Group& group, size_t before);
    void enforceLimits(const Group& group);
    void shutDown(int fd, Connection& connection, uint64_t& count);
    bool readsTooSlowly(int fd, Connection& connection, Clock::time_point now) const;
    size_t limitOf(const std::string& sender) const;

    const ConnectionLimits m_limits;
    mutable std::mutex m_mutex;  // guards the members below, and keeps their sockets from being closed meanwhile
    std::unordered_map<int, Connection> m_connections;
    std::unordered_map<std::string, std::list<int>> m_groups;             // by sender; none is empty
    std::set<std::pair<size_t, Group*>> m_bySize;                         // the groups, the largest last
    size_t m_count = 0;                                                   // of connections that were not shut down
    uint64_t m_opened = 0, m_overLimit = 0, m_slow = 0, m_forMemory = 0;  // counts since the start
};

}  // namespace host
