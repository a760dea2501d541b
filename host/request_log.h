// The server's log on standard error: a line per request, and what went wrong. Any thread may call these functions;
// lines do not mix, and one that cannot be written is lost.
#pragma once

#include <chrono>
#include <string>

#include "host/request_head.h"

namespace host {

// Writes a request's line: time in UTC, account, API, method, code, milliseconds since start. code: the envelope's
// code, or "cut" when the client got no answer.
void logRequest(const RequestHead& head, std::chrono::steady_clock::time_point start, const std::string& code) noexcept;

// Writes a line for the operator. szWhat: what failed; szWhy: an exception's text.
void logTrouble(const char* szWhat, const char* szWhy) noexcept;

}  // namespace host
