// The server's log: a line per request.
#pragma once

#include <chrono>
#include <string>

#include "host/request_head.h"

namespace host {

// Writes a line to standard error: time in UTC, account, API, method, code, milliseconds since start. code: the
// envelope's code, or "cut" when the client got no answer. A line that cannot be written is lost. Any thread may call
// it; lines do not mix.
void logRequest(const RequestHead& head, std::chrono::steady_clock::time_point start, const std::string& code) noexcept;

}  // namespace host
