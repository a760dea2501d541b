// Bounds the connections of each sender, and ends those that are too slow or whose answers take too much memory.
#include "host/http/connections.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <vector>

namespace host {

namespace {

constexpr char kAccountPrefix[] = "account ";
constexpr uint64_t kSmallAnswer = 16 << 10;  // in bytes; ending its connection would hardly free memory

// Returns how many bytes of all that was sent the client has acknowledged; nothing when the system does not say it.
std::optional<uint64_t> bytesTaken(int fd)
{
    tcp_info info{};
    socklen_t size = sizeof(info);
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
        size < offsetof(tcp_info, tcpi_bytes_acked) + sizeof(info.tcpi_bytes_acked)) {
        return std::nullopt;
    }
    return info.tcpi_bytes_acked;
}

}  // namespace

void Connections::open(int fd, const std::string& sender) noexcept
try {
    const std::lock_guard lock(m_mutex);
    ++m_opened;
    Connection& connection = m_connections[fd];
    connection.address = sender;
    connection.deadline = Clock::now() + m_limits.headTime;
    moveTo(fd, connection, sender);
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void Connections::beginRequest(int fd, const std::string& sender) noexcept
try {
    const std::lock_guard lock(m_mutex);
    Connection& connection = m_connections.at(fd);
    connection.deadline = Clock::now() + m_limits.bodyTime;
    moveTo(fd, connection, sender.empty() ? connection.address : sender);
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void Connections::setAccount(int fd, int64_t uid) noexcept
try {
    const std::lock_guard lock(m_mutex);
    moveTo(fd, m_connections.at(fd), kAccountPrefix + std::to_string(uid));
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void Connections::endArrival(int fd)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_connections.find(fd); found != m_connections.end()) {
        found->second.deadline = Clock::time_point::max();
    }
}

void Connections::beginAnswer(int fd, const AnswerText& text)
{
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_connections.find(fd); found != m_connections.end()) {
        found->second.deadline = Clock::time_point::max();
        found->second.answer = text;
        found->second.windowEnd = {};
    }
}

void Connections::endRequest(int fd) noexcept
try {
    const std::lock_guard lock(m_mutex);
    Connection& connection = m_connections.at(fd);
    connection.answer.reset();
    connection.deadline = Clock::now() + m_limits.headTime;
    moveTo(fd, connection, connection.address);
} catch (const std::exception&) {
    shutdown(fd, SHUT_RDWR);
}

void Connections::close(int fd)
{
    const std::lock_guard lock(m_mutex);
    if (auto closed = m_connections.extract(fd)) {
        leaveGroup(closed.mapped());
    }
}

void Connections::endSlow()
{
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    for (auto& [fd, connection] : m_connections) {
        if (now > connection.deadline || (connection.answer && readsTooSlowly(fd, connection, now))) {
            shutDown(fd, connection, m_slow);
        }
    }
}

void Connections::freeMemory(uint64_t bytes) noexcept
try {
    if (bytes == 0) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    std::map<AnswerText, std::vector<int>> readers;
    for (const auto& [fd, connection] : m_connections) {
        if (connection.answer) {
            readers[connection.answer].push_back(fd);
        }
    }
    uint64_t freed = 0;
    std::vector<std::pair<uint64_t, int>> parts;  // of the memory, by socket
    for (const auto& [text, fds] : readers) {
        const uint64_t all = memoryOf(*text);
        const uint64_t part = all / fds.size();
        for (const int fd : fds) {
            if (m_connections.at(fd).isShutDown) {
                freed += part;  // as soon as the owner closes it
            } else if (all > kSmallAnswer) {
                parts.emplace_back(part, fd);
            }
        }
    }
    std::sort(parts.rbegin(), parts.rend());
    for (size_t i = 0; i < parts.size() && freed < bytes; ++i) {
        freed += parts[i].first;
        shutDown(parts[i].second, m_connections.at(parts[i].second), m_forMemory);
    }
} catch (const std::exception&) {
    return;  // no memory for the lists; the next call tries again
}

Connections::Counts Connections::counts() const
{
    const std::lock_guard lock(m_mutex);
    return {m_connections.size(), m_limits.all, m_opened, m_overLimit, m_slow, m_forMemory};
}

// Makes the connection the youngest one of the sender, unless it was shut down or is one of the sender's.
void Connections::moveTo(int fd, Connection& connection, const std::string& sender)
{
    if (connection.isShutDown || (connection.pGroup != nullptr && connection.pGroup->first == sender)) {
        return;
    }
    // All memory is allocated before the first change.
    std::list<int> added{fd};
    Group& group = *m_groups.try_emplace(sender).first;
    m_bySize.emplace(group.second.size(), &group);
    leaveGroup(connection);
    connection.pGroup = &group;
    connection.place = added.begin();
    group.second.splice(group.second.end(), added);
    ++m_count;
    noteSize(group, group.second.size() - 1);
    enforceLimits(group);
}

void Connections::leaveGroup(Connection& connection)
{
    if (connection.pGroup == nullptr) {
        return;
    }
    Group& group = *std::exchange(connection.pGroup, nullptr);
    group.second.erase(connection.place);
    --m_count;
    noteSize(group, group.second.size() + 1);
}

// Brings the order of the groups up to date, or erases the group when it is empty. before: its size until now.
void Connections::noteSize(Group& group, size_t before)
{
    auto noted = m_bySize.extract({before, &group});
    if (group.second.empty()) {
        m_groups.erase(group.first);
        return;
    }
    noted.value().first = group.second.size();
    m_bySize.insert(std::move(noted));
}

void Connections::enforceLimits(const Group& group)
{
    if (group.second.size() > limitOf(group.first)) {
        const int oldest = group.second.front();
        shutDown(oldest, m_connections.at(oldest), m_overLimit);
    }
    if (m_count > m_limits.all) {
        const int oldest = m_bySize.rbegin()->second->second.front();
        shutDown(oldest, m_connections.at(oldest), m_overLimit);
    }
}

size_t Connections::limitOf(const std::string& sender) const
{
    if (sender.empty()) {
        return m_limits.all;
    }
    return sender.starts_with(kAccountPrefix) ? m_limits.perAccount : m_limits.perAddress;
}

void Connections::shutDown(int fd, Connection& connection, uint64_t& count)
{
    count += connection.isShutDown ? 0 : 1;
    const linger discardsUnsent{.l_onoff = 1, .l_linger = 0};  // or the kernel would keep megabytes for a slow reader
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &discardsUnsent, sizeof(discardsUnsent));
    shutdown(fd, SHUT_RDWR);
    connection.isShutDown = true;
    leaveGroup(connection);
}

// Compares, at the end of each window, what the client has taken of the answer with the least that it must take.
bool Connections::readsTooSlowly(int fd, Connection& connection, Clock::time_point now) const
{
    if (now < connection.windowEnd) {
        return false;
    }
    const auto taken = bytesTaken(fd);
    const bool isFirst = connection.windowEnd == Clock::time_point{};
    const auto least = std::chrono::duration_cast<std::chrono::seconds>(m_limits.readWindow).count() << 10;
    const bool isSlow = !isFirst && taken && *taken - connection.takenBefore < static_cast<uint64_t>(least);
    connection.takenBefore = taken.value_or(0);
    connection.windowEnd = now + m_limits.readWindow;
    return isSlow;
}

}  // namespace host
