// A line is written by one call, so that lines of different threads do not mix.
#include "host/request_log.h"

#include <unistd.h>

#include <ctime>
#include <exception>

#include "host/text.h"

namespace host {

namespace {

std::string utcNow()
{
    const time_t now = time(nullptr);
    tm utc{};
    char szTime[sizeof("YYYY-MM-DDThh:mm:ssZ")];
    strftime(szTime, sizeof(szTime), "%FT%TZ", gmtime_r(&now, &utc));
    return szTime;
}

}  // namespace

void logRequest(const RequestHead& head, std::chrono::steady_clock::time_point start, const std::string& code) noexcept
try {
    const auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    const std::string line = utcNow() + ' ' + logField(head.account.name) + ' ' + logField(head.api) + ' ' +
                             logField(head.method) + ' ' + code + ' ' + std::to_string(spent.count()) + '\n';
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
} catch (const std::exception&) {
    return;  // no memory for the line
}

}  // namespace host
