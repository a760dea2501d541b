// The lines of the log that tell of requests. Any thread may call the function.
#pragma once

#include <chrono>
#include <string>

#include "host/http/request_head.h"

namespace host {

// Writes a request's line: time in UTC, account, API, method, code, milliseconds since start. code: the envelope's
// code, HTTP's status for a file of the page, or "cut" when the client got no answer.
void logRequest(const RequestHead& head, std::chrono::steady_clock::time_point start, const std::string& code) noexcept;

}  // namespace host
