// The socket that the server takes its connections from.
#pragma once

#include <string>

namespace host {

// Opens a TCP socket that listens on the address, does not block and is closed on exec. address: "IPV4:PORT" or
// "[IPV6]:PORT" in numbers; port 0 means any that is free. allowRemote: whether the address may be one that other
// machines reach. Returns the descriptor, which the caller owns. Any thread may call it.
// Throws std::runtime_error when the text is no such address, when it is not loopback and may not be, and when the
// system refuses it; the program is expected to end then.
int openListenSocket(const std::string& address, bool allowRemote);

}  // namespace host
