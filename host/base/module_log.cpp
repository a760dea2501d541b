// The modules' calls of syslog come here first: their lines go on to the system's log, and to the program's own. The C
// library could copy them itself (LOG_PERROR), but it would make handlers wait for who reads standard error, and write
// a name that holds a line end as two lines.
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

#include "host/base/log.h"
#include "host/base/text.h"

namespace {

// The text of the line; szFormat's "%m" takes errno, which is as it was at the call.
std::string textOf(const char* szFormat, va_list arguments, int err)
{
    va_list again;
    va_copy(again, arguments);
    errno = err;
    const int size = vsnprintf(nullptr, 0, szFormat, again);
    va_end(again);
    std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    errno = err;
    vsnprintf(text.data(), text.size() + 1, szFormat, arguments);
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

void writeLine(int priority, const char* szFormat, va_list arguments) noexcept
{
    const int err = errno;
    va_list again;
    va_copy(again, arguments);
    vsyslog(priority, szFormat, again);
    va_end(again);
    try {
        host::writeLog("module: " + host::printable(textOf(szFormat, arguments, err)));
    } catch (const std::exception&) {
        // no memory for the line
    }
    errno = err;
}

}  // namespace

// What the C library declares under these names; the second is what it makes of the first when a module is compiled
// with checks of its formats.
extern "C" {

[[gnu::visibility("default")]] void syslog(int priority, const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    writeLine(priority, szFormat, arguments);
    va_end(arguments);
}

[[gnu::visibility("default")]] void __syslog_chk(int priority, int, const char* szFormat, ...)
{
    va_list arguments;
    va_start(arguments, szFormat);
    writeLine(priority, szFormat, arguments);
    va_end(arguments);
}

}  // extern "C"
