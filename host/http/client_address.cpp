// Tells the addresses of clients apart.
#include "host/http/client_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>

#include <cstddef>

namespace host {

namespace {

constexpr size_t kNetworkName = 1 + 8;  // of an IPv6 address; the name of an IPv4 address is shorter

AddressName nameOf(const in_addr& address)
{
    return "4" + std::string(reinterpret_cast<const char*>(&address), sizeof(address));
}

AddressName nameOf(const in6_addr& address)
{
    const char* const pBytes = reinterpret_cast<const char*>(&address);
    if (IN6_IS_ADDR_V4MAPPED(&address)) {
        return "4" + std::string(pBytes + sizeof(in6_addr) - sizeof(in_addr), sizeof(in_addr));
    }
    return "6" + std::string(pBytes, sizeof(address));
}

}  // namespace

AddressName addressNamed(const std::string& text)
{
    in_addr address4{};
    in6_addr address6{};
    if (inet_pton(AF_INET, text.c_str(), &address4) == 1) {
        return nameOf(address4);
    }
    return inet_pton(AF_INET6, text.c_str(), &address6) == 1 ? nameOf(address6) : "";
}

std::string senderOf(const AddressName& address)
{
    return address.substr(0, kNetworkName);
}

AddressName peerOf(MHD_Connection* pConnection)
{
    const sockaddr* pAddress = MHD_get_connection_info(pConnection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
    if (pAddress->sa_family == AF_INET6) {
        return nameOf(reinterpret_cast<const sockaddr_in6*>(pAddress)->sin6_addr);
    }
    return nameOf(reinterpret_cast<const sockaddr_in*>(pAddress)->sin_addr);
}

AddressName forwardedClientOf(MHD_Connection* pConnection)
{
    std::string last;
    const auto keepLast = [](void* pLast, MHD_ValueKind, const char* szName, const char* szValue) {
        if (strcasecmp(szName, "X-Forwarded-For") == 0 && szValue != nullptr) {
            *static_cast<std::string*>(pLast) = szValue;
        }
        return MHD_YES;
    };
    MHD_get_connection_values(pConnection, MHD_HEADER_KIND, keepLast, &last);
    last.erase(0, last.find_last_of(", \t") + 1);
    return addressNamed(last);
}

}  // namespace host
