// Opens the socket on which the server accepts connections.
#pragma once

#include <string>

namespace host {

// Opens a TCP socket that listens on the address, does not block and is closed on exec. address: "NAME:PORT",
// "IPV4:PORT" or "[IPV6]:PORT"; a name stands for the first of its addresses, port 0 for any free one. allowRemote:
// whether the address may be reachable from other machines. Returns the descriptor, which the caller owns. Any thread
// may call it.
//
// Throws UsageError when the text is no such address, and when the address is not loopback and allowRemote is false.
// Throws std::runtime_error when the system refuses the address; the program is expected to end then.
int openListenSocket(const std::string& address, bool allowRemote);

}  // namespace host
