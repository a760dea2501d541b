// Each change of the database ends the life of kept answers, so all uses are written in one transaction, and seldom.
#include "store/accounts/token_uses.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "store/base/signal_block.h"
#include "store/base/timeouts.h"
#include "store/db/database.h"
#include "store/sql/session.h"
#include "store/sql/statement.h"

namespace store {
namespace {

using Uses = std::map<std::string, int64_t>;  // hash of the token, time of its last use

// Waits for no lock, and not for a standby either: the loss of a note does no harm. A stored time that is a little
// later comes from another server; one that is later still comes from a wrong clock.
void writeInTransaction(soci::session& sql, const Uses& uses)
{
    const NoLockWait noLockWait(sql);
    execute(sql, isPostgres() ? "BEGIN ISOLATION LEVEL READ COMMITTED;"
                                " SET LOCAL synchronous_commit = off; SET LOCAL lock_timeout = 1"
                              : "BEGIN IMMEDIATE");
    for (const auto& [tokenHash, time] : uses) {
        const int64_t latest = time + std::chrono::seconds(kTokenUseInterval).count();
        change(sql, "UPDATE token SET last_used = :time WHERE hash = :hash AND last_used NOT BETWEEN :same AND :latest",
               time, tokenHash, time, latest);
    }
    execute(sql, "COMMIT");
}

// Returns whether the uses were written.
bool write(const Uses& uses) noexcept
try {
    Connection connection;
    try {
        writeInTransaction(connection.sql(), uses);
        return true;
    } catch (const std::runtime_error&) {
        connection.close();  // this ends the transaction; the next thread that leases the connection makes it anew
        return false;
    }
} catch (const std::exception&) {
    return false;
}

class TokenUses {
public:
    TokenUses()
    {
        const SignalBlock block;
        m_thread = std::thread(&TokenUses::run, this);
    }

    // Drops the notes that are not written.
    ~TokenUses()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_isStopping = true;
            m_stopping.notify_all();
        }
        m_thread.join();
    }
    TokenUses(const TokenUses&) = delete;
    TokenUses& operator=(const TokenUses&) = delete;

    void note(const std::string& tokenHash, int64_t time)
    {
        const std::lock_guard lock(m_mutex);
        m_uses[tokenHash] = time;
    }

    void writeAll()
    {
        std::unique_lock lock(m_mutex);
        Uses uses;
        uses.swap(m_uses);
        lock.unlock();
        if (!uses.empty() && !write(uses)) {
            lock.lock();
            m_uses.merge(uses);  // for the next time, but not over later uses
        }
    }

private:
    void run()
    {
        std::unique_lock lock(m_mutex);
        while (!m_stopping.wait_for(lock, kTokenUseInterval, [this] { return m_isStopping; })) {
            lock.unlock();
            writeAll();
            lock.lock();
        }
    }

    std::mutex m_mutex;  // guards the members below; never held during a statement
    std::condition_variable m_stopping;
    bool m_isStopping = false;
    Uses m_uses;
    std::thread m_thread;
};

std::mutex gMutex;  // guards the pointer
std::unique_ptr<TokenUses> gTokenUses;

}  // namespace

void noteTokenUse(const std::string& tokenHash, int64_t time) noexcept
try {
    const std::lock_guard lock(gMutex);
    if (gTokenUses == nullptr) {
        gTokenUses = std::make_unique<TokenUses>();
    }
    gTokenUses->note(tokenHash, time);
} catch (const std::exception&) {  // the use stays unnoted
}

void closeTokenUses() noexcept
{
    const std::lock_guard lock(gMutex);
    if (gTokenUses != nullptr) {
        gTokenUses->writeAll();
        gTokenUses.reset();
    }
}

}  // namespace store
