// Opens the socket on which the server accepts connections.
#pragma once

#include <string>

namespace host {

// Opens a TCP socket that listens on the address, does not block and is closed on exec. address: "IPV4:PORT" or
// "[IPV6]:PORT" in digits; port 0 selects any free one. allowRemote: whether the address may be reachable from other
// machines. Returns the descriptor, which the caller owns. Any thread may call it.
//
// Throws std::runtime_error when the text is no such address, when the address is not loopback and allowRemote is
// false, and when the system refuses it; the program is expected to end then.
int openListenSocket(const std::string& address, bool allowRemote);

}  // namespace host
