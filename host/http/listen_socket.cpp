// Opens the socket on which the server accepts connections.
#include "host/http/listen_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "host/base/usage_error.h"

namespace host {

namespace {

bool isLoopback(const sockaddr* pAddress)
{
    if (pAddress->sa_family == AF_INET6) {
        return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(pAddress)->sin6_addr);
    }
    return ntohl(reinterpret_cast<const sockaddr_in*>(pAddress)->sin_addr.s_addr) >> 24 == 127;
}

std::shared_ptr<addrinfo> parseAddress(const std::string& text)
{
    char szName[254], szPort[6];
    int end = 0;
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* pAddress = nullptr;
    const bool isWellFormed = sscanf(text.c_str(), "[%45[0-9a-fA-F:.]]:%5[0-9]%n", szName, szPort, &end) == 2 ||
                              sscanf(text.c_str(), "%253[0-9a-zA-Z.-]:%5[0-9]%n", szName, szPort, &end) == 2;
    if (!isWellFormed || text.size() != static_cast<size_t>(end) || atoi(szPort) > 65535) {
        throw UsageError(text + " is no address to listen on: NAME:PORT, IPV4:PORT or [IPV6]:PORT");
    }
    const int result = getaddrinfo(szName, szPort, &hints, &pAddress);
    if (result != 0) {
        throw UsageError(text + " is no address to listen on: " + gai_strerror(result));
    }
    return {pAddress, freeaddrinfo};
}

}  // namespace

int openListenSocket(const std::string& address, bool allowRemote)
{
    const auto pAddress = parseAddress(address);
    if (!allowRemote && !isLoopback(pAddress->ai_addr)) {
        throw UsageError(address + " can be reached from elsewhere: that needs --allow-remote");
    }
    const int on = 1;
    const int fd = socket(pAddress->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) < 0 ||
        bind(fd, pAddress->ai_addr, pAddress->ai_addrlen) < 0 || listen(fd, SOMAXCONN) < 0) {
        // The program ends, which closes the descriptor.
        throw std::runtime_error("cannot listen on " + address + ": " + strerror(errno));
    }
    return fd;
}

}  // namespace host
