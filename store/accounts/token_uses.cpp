// Each change of the database ends the life of kept answers, so all uses are written in one transaction, and seldom.
#include "store/accounts/token_uses.h"

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "store/base/repeated_task.h"
#include "store/base/timeouts.h"
#include "store/db/quiet_transaction.h"
#include "store/sql/statement.h"

namespace store {
namespace {

using Uses = std::map<std::string, int64_t>;  // hash of the token, time of its last use

// Returns whether the uses were written. A stored time that is a little later comes from another server; one that is
// later still comes from a wrong clock.
bool write(const Uses& uses) noexcept
{
    return inQuietTransaction([&uses](soci::session& sql) {
        for (const auto& [tokenHash, time] : uses) {
            const int64_t latest = time + std::chrono::seconds(kTokenUseInterval).count();
            change(sql,
                   "UPDATE token SET last_used = :time WHERE hash = :hash AND last_used NOT BETWEEN :same AND :latest",
                   time, tokenHash, time, latest);
        }
    });
}

class TokenUses {
public:
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
    std::mutex m_mutex;  // guards the next member; never held during a statement
    Uses m_uses;
    RepeatedTask m_task{kTokenUseInterval, [this] {
                            writeAll();
                            return RepeatedTask::Pause(kTokenUseInterval);
                        }};  // declared last: its thread uses the members above
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
