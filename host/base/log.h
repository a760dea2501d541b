// Writes the program's log to standard error: one line per event, each beginning with the time in UTC.
//
// Any thread may call these functions.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace host {

// Moves the writing to a thread of its own for as long as the object lives, so that no caller waits for the reader of
// standard error. Up to 256 KiB of lines wait in memory. Lines beyond that are dropped, and a later line says how many.
// Without the object, the calling thread writes each line at once.
//
// At most one object exists at a time. The main thread creates and destroys it while no other thread writes a line. The
// constructor throws std::system_error when the thread cannot be started; the destructor waits up to two seconds for
// the lines that are still to be written.
class LogThread {
public:
    LogThread();
    LogThread(const LogThread&) = delete;
    LogThread& operator=(const LogThread&) = delete;
    ~LogThread();
};

// Writes a line. text: the line without the time and the line end; it is written as it is, so the caller makes texts
// from outside printable. The line is lost when memory runs out.
void writeLog(const std::string& text) noexcept;

// Writes a line about an error for the operator. szWhat: what failed; szWhy: the reason, which may hold any bytes.
void logError(const char* szWhat, const char* szWhy) noexcept;

// Limits a kind of line that every request may cause to one in ten seconds.
class LogRateLimit {
public:
    // Returns whether the caller may write a line now; a true result starts the next ten seconds.
    bool isDue();

private:
    std::atomic<int64_t> m_next{0};  // seconds on the steady clock
};

// Waits up to two seconds until LogThread has written its lines. Call it before the process ends without destroying the
// LogThread.
void flushLog() noexcept;

// Returns a time as "YYYY-MM-DDThh:mm:ssZ". seconds: since 1970.
std::string utcTime(int64_t seconds);

}  // namespace host
