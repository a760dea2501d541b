// Writes a line of the log for each request. Any thread may call the function.
#pragma once

#include <chrono>
#include <string>

#include "host/http/request_head.h"

namespace host {

// Writes the line of a request: time in UTC, account, API, method, code, milliseconds spent. code: the error code of
// the envelope, the HTTP status for a static file, or "cut" when the connection ended without an answer.
void logRequest(const RequestHead& head, std::chrono::steady_clock::duration spent, const std::string& code) noexcept;

}  // namespace host
