// A line is written by one call, so that lines of different threads do not mix.
#include "host/request_log.h"

#include <unistd.h>

#include <ctime>
#include <exception>

#include "host/text.h"

namespace host {

namespace {

void writeLine(const std::string& line)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
}

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
    writeLine(utcNow() + ' ' + logField(head.account.name) + ' ' + logField(head.api) + ' ' + logField(head.method) +
              ' ' + code + ' ' + std::to_string(spent.count()) + '\n');
} catch (const std::exception&) {
    return;  // no memory for the line
}

void logTrouble(const char* szWhat, const char* szWhy) noexcept
try {
    writeLine(std::string("zemhost: ") + szWhat + ": " + printable(szWhy) + '\n');
} catch (const std::exception&) {
    return;  // no memory for the line
}

}  // namespace host
