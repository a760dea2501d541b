// Tells the addresses of clients apart. Any thread may call these functions.
#pragma once

#include <string>
#include <vector>

#include <microhttpd.h>

namespace host {

// The name of an address. An IPv4 address that is written as IPv6 is the same as the IPv4 address.
using AddressName = std::string;

// Returns the name of the address, an empty one when the text is no address.
AddressName addressNamed(const std::string& text);

// Returns what the address has in common with others of the same client, which may use a whole IPv6 network of 64 bits
// alone: its name, or the beginning of it. Empty for an empty name.
std::string senderOf(const AddressName& address);

// Returns the name of the address from which the connection comes. Call it on the thread that serves the connection.
AddressName peerOf(MHD_Connection* pConnection);

// Returns the name of the client's address as the proxy in front of the server forwarded it, which is the last one in
// the header X-Forwarded-For. Empty when there is none. Call it on the thread that serves the connection.
AddressName forwardedClientOf(MHD_Connection* pConnection);

}  // namespace host
