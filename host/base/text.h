// Text of clients and of the store, made safe to print. Any thread may call these functions.
#pragma once

#include <string>
#include <string_view>

namespace host {

// A copy for a terminal: control characters and backslashes are written as \xNN.
std::string printable(std::string_view text);

// A copy for one field of a log line: at most 80 bytes, spaces escaped too; "-" when the text is empty.
std::string logField(std::string_view text);

}  // namespace host
