// Replaces the C library's syslog(), so that the lines that modules log reach the program's own log as well.
//
// The C library could copy them to standard error by itself (LOG_PERROR), but handlers would then wait for the reader
// of standard error, and a name that holds a line end would be written as two lines.
#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

#include "host/base/log.h"
#include "host/base/text.h"

namespace {

// Returns the formatted text without trailing line ends. err: the caller's errno, which "%m" in szFormat stands for.
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

// A module that is compiled with checked formats (_FORTIFY_SOURCE) calls __syslog_chk in place of syslog.
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
