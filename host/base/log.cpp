// Buffers the log's lines in memory and writes them to standard error on a thread of its own.
#include "host/base/log.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <exception>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include "host/base/text.h"

namespace host {

namespace {

constexpr size_t kMaxBuffered = 256 << 10;  // bytes
constexpr std::chrono::seconds kFlushTimeout{2};
constexpr std::chrono::seconds kRateLimitInterval{10};

// Writes the text to standard error; drops the rest when that fails for good.
void writeAll(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {  // the parent process may have made it non-blocking
            pollfd writable{STDERR_FILENO, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return;
        }
    }
}

// The lines that the log's thread has not written yet. The thread is one of the owners, because it may still be stuck
// in a write when the program has destroyed the LogThread.
class LogBuffer {
public:
    void add(const std::string& line)
    {
        const std::lock_guard lock(m_mutex);
        if (m_text.size() + line.size() > kMaxBuffered) {
            ++m_dropped;
            return;
        }
        m_text += line;
        m_changed.notify_all();
    }

    // Writes lines until close() was called and none is left. Runs on the thread.
    void writeUntilClosed()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_isWriting = false;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return !m_text.empty() || m_isClosed; });
            if (m_text.empty()) {
                return;
            }
            m_isWriting = true;
            const std::string text = takeText();
            lock.unlock();
            writeAll(text);
            lock.lock();
        }
    }

    void close()
    {
        const std::lock_guard lock(m_mutex);
        m_isClosed = true;
        m_changed.notify_all();
    }

    void flush()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, kFlushTimeout, [this] { return m_text.empty() && !m_isWriting; });
    }

private:
    std::string takeText()
    {
        std::string text = std::exchange(m_text, "");
        if (m_dropped > 0) {
            text += utcTime(time(nullptr)) + " zemhost: " + std::to_string(m_dropped) + " lines were dropped\n";
            m_dropped = 0;
        }
        return text;
    }

    std::mutex m_mutex;  // guards the rest
    std::condition_variable m_changed;
    std::string m_text;    // lines that are not written yet
    size_t m_dropped = 0;  // lines that found the buffer full
    bool m_isWriting = false;
    bool m_isClosed = false;
};

std::shared_ptr<LogBuffer> gpBuffer;  // null without a LogThread

}  // namespace

LogThread::LogThread()
{
    const auto pBuffer = std::make_shared<LogBuffer>();
    std::thread([pBuffer] { pBuffer->writeUntilClosed(); }).detach();
    gpBuffer = pBuffer;
}

LogThread::~LogThread()
{
    gpBuffer->flush();
    gpBuffer->close();
    gpBuffer = nullptr;
}

void writeLog(const std::string& text) noexcept
try {
    const std::string line = utcTime(time(nullptr)) + ' ' + text + '\n';
    if (gpBuffer == nullptr) {
        writeAll(line);
    } else {
        gpBuffer->add(line);
    }
} catch (const std::exception&) {
    return;  // no memory for the line
}

void logError(const char* szWhat, const char* szWhy) noexcept
try {
    writeLog(std::string("zemhost: ") + szWhat + ": " + printable(szWhy));
} catch (const std::exception&) {
    return;  // no memory for the line
}

bool LogRateLimit::isDue()
{
    using namespace std::chrono;
    const int64_t now = duration_cast<seconds>(steady_clock::now().time_since_epoch()).count();
    int64_t next = m_next;
    return now >= next && m_next.compare_exchange_strong(next, now + kRateLimitInterval.count());
}

void flushLog() noexcept
{
    if (gpBuffer != nullptr) {
        gpBuffer->flush();
    }
}

std::string utcTime(int64_t seconds)
{
    const time_t when = seconds;
    tm utc{};
    char szTime[sizeof("YYYY-MM-DDThh:mm:ssZ") + 16];  // a year may have more digits
    if (gmtime_r(&when, &utc) == nullptr) {
        return std::to_string(seconds);
    }
    strftime(szTime, sizeof(szTime), "%FT%TZ", &utc);
    return szTime;
}

}  // namespace host
