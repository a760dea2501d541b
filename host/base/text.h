// Makes texts of clients and of the store safe to print. Any thread may call these functions.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Returns a copy for a terminal: control characters, backslashes and, in a text that is not UTF-8, all bytes from 0x80
// on are written as \xNN.
std::string printable(std::string_view text);

// Returns a copy of the first 80 bytes for one field of a log line: printable, with spaces escaped as well. Returns "-"
// for an empty text.
std::string logField(std::string_view text);

}  // namespace host
