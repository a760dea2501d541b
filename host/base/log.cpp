// Lines are gathered in one text, which the thread takes as a whole; only it waits in write().
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

constexpr size_t kMaxWaiting = 256 << 10;  // bytes
constexpr std::chrono::seconds kMaxFlush{2};
constexpr std::chrono::seconds kLineEvery{10};

// Writes as much as the reader takes before standard error breaks.
void writeAll(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno == EAGAIN) {  // whoever started us may have made it so
            pollfd room{STDERR_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return;
        }
    }
}

// What the thread and those who write share. The thread's too: it may outlive everything else, stuck in a write.
class WaitingLines {
public:
    void add(const std::string& line)
    {
        const std::lock_guard lock(m_mutex);
        if (m_text.size() + line.size() > kMaxWaiting) {
            ++m_dropped;
            return;
        }
        m_text += line;
        m_changed.notify_all();
    }

    // Runs on the thread, until the end and nothing is left.
    void drain()
    {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_isWriting = false;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return !m_text.empty() || m_isEnding; });
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

    void end()
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        m_changed.notify_all();
    }

    void flush()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, kMaxFlush, [this] { return m_text.empty() && !m_isWriting; });
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
    std::string m_text;    // lines to be written
    size_t m_dropped = 0;  // lines that came after them
    bool m_isWriting = false;
    bool m_isEnding = false;
};

std::shared_ptr<WaitingLines> gpLines;  // null without a LogThread

}  // namespace

LogThread::LogThread()
{
    const auto pLines = std::make_shared<WaitingLines>();
    std::thread([pLines] { pLines->drain(); }).detach();
    gpLines = pLines;
}

LogThread::~LogThread()
{
    gpLines->flush();
    gpLines->end();
    gpLines = nullptr;
}

void writeLog(const std::string& text) noexcept
try {
    const std::string line = utcTime(time(nullptr)) + ' ' + text + '\n';
    if (gpLines == nullptr) {
        writeAll(line);
    } else {
        gpLines->add(line);
    }
} catch (const std::exception&) {
    return;  // no memory for the line
}

void logTrouble(const char* szWhat, const char* szWhy) noexcept
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
    return now >= next && m_next.compare_exchange_strong(next, now + kLineEvery.count());
}

void flushLog() noexcept
{
    if (gpLines != nullptr) {
        gpLines->flush();
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
