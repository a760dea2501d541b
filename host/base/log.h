// The program's log on standard error: one line each, with the time in UTC first. Any thread may call these functions.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace host {

// While the object lives, lines wait in memory, up to
// 256 KiB, and a thread writes them, so that no caller waits for the reader of standard error. Lines that find no room
// are dropped, and a line says how many once there is room again. Without the object a line is written at once, by who
// calls. One object at a time; made and destroyed by the main thread, while no other thread writes a line. Its end
// waits for what is to be written, for two seconds at most. Throws std::system_error when it cannot start its thread.
class LogThread {
public:
    LogThread();
    LogThread(const LogThread&) = delete;
    LogThread& operator=(const LogThread&) = delete;
    ~LogThread();
};

// Writes a line. text: goes out as it is, without a line end of its own; what comes from outside must be made
// printable. A line for which there is no memory is lost.
void writeLog(const std::string& text) noexcept;

// Writes a line for the operator. szWhat: what failed; szWhy: an exception's text, any bytes.
void logTrouble(const char* szWhat, const char* szWhy) noexcept;

// Lets one line through in ten seconds, for trouble that every request may meet.
class LogRateLimit {
public:
    // Whether the line is to be written.
    bool isDue();

private:
    std::atomic<int64_t> m_next{0};  // seconds on the steady clock
};

// Has LogThread's waiting lines written, for two seconds at most: for who ends the process without destroying it.
void flushLog() noexcept;

// Seconds since 1970 as "YYYY-MM-DDThh:mm:ssZ".
std::string utcTime(int64_t seconds);

}  // namespace host
