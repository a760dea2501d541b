// Makes texts of clients and of the store safe to print. Any thread may call these functions.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Returns a copy for a terminal or for a line of the log, as store::escapeUnseen does.
std::string printable(std::string_view text);

// Returns a copy of the first 80 bytes for one field of a log line: printable, with spaces and backslashes escaped as
// well. Returns "-" for an empty text.
std::string logField(std::string_view text);

}  // namespace host
