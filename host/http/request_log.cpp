// Writes a line of the log for each request. The fields are escaped, so that none can look like two.
#include "host/http/request_log.h"

#include <exception>

#include "host/base/log.h"
#include "host/base/text.h"

namespace host {

void logRequest(const RequestHead& head, std::chrono::steady_clock::duration spent, const std::string& code) noexcept
try {
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(spent).count();
    writeLog(logField(head.account.name) + ' ' + logField(head.api) + ' ' + logField(head.method) + ' ' + code + ' ' +
             std::to_string(milliseconds));
} catch (const std::exception&) {
    return;  // no memory for the line
}

}  // namespace host
