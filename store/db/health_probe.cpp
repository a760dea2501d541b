// A probe uses connections of its own: those of the pool may all be in use.
#include "store/db/health_probe.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/base/timeouts.h"
#include "store/sql/session.h"
#include "store/sql/statement.h"

namespace store {
namespace {

constexpr char kTooSlow[] = "it does not answer in time";

// A statement that waits for a lock or for a standby counts as executed.
constexpr char kWorkingProcesses[] =
    "SELECT string_agg(pid::text, ' ') FROM pg_stat_activity WHERE state IS NULL OR state NOT LIKE 'idle%'";

}  // namespace

// Opens the file anew each time, because an open file may have been removed from its path.
void probeSqlite(const std::string& path)
{
    soci::session sql;
    openSession(sql, *soci::factory_sqlite3(), "dbname=\"" + path + "\" readonly=1 nocreate=1");
    std::string answer;
    Statement(sql).out(answer).prepare("PRAGMA busy_timeout = " + std::to_string(kProbeTimeout.count())).first();
    number(sql, "SELECT COUNT(*) FROM meta");
}

void PrimaryProbe::probe()
{
    if (m_pConnection != nullptr) {
        if (answers()) {
            return;
        }
        const bool isLost = m_pConnection->isLost();
        take(nullptr);
        m_pPrimary->tryAnotherFirst();
        require(isLost, EIO, kTooSlow);  // one that was lost may have been so without an outage
    }
    auto pConnection = std::make_unique<TimedConnection>(*m_pPrimary);
    take(std::move(pConnection));
}

bool PrimaryProbe::answers()
{
    const int64_t process = m_pConnection->backend().process;
    const auto answer = m_pConnection->ask(process == 0 ? "SELECT 0" : "SELECT pg_backend_pid()", kProbeTimeout);
    if (answer && *answer != std::to_string(process)) {
        take(nullptr);
        throw Refusal(EIO, kSharedProcess);
    }
    return answer.has_value();
}

void PrimaryProbe::lookForPrimary() noexcept
try {
    m_pPrimary->tryAnotherFirst();
    take(std::make_unique<TimedConnection>(*m_pPrimary));
} catch (const std::exception&) {  // the present connection answers
}

std::optional<std::set<int64_t>> PrimaryProbe::workingProcesses()
{
    const auto answer = m_pConnection->ask(kWorkingProcesses, kProbeTimeout);
    if (!answer || m_pConnection->backend().process == 0) {
        return std::nullopt;
    }
    std::set<int64_t> processes;
    std::istringstream stream(*answer);
    for (int64_t process = 0; stream >> process;) {
        processes.insert(process);
    }
    return processes;
}

void PrimaryProbe::endTransactionOf(int64_t process)
{
    const std::string query =
        "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE pid = " + std::to_string(process) +
        " AND state LIKE 'idle in transaction%'";
    m_pConnection->ask(query.c_str(), kProbeTimeout);
}

void PrimaryProbe::take(std::unique_ptr<TimedConnection> pConnection) noexcept
{
    m_pConnection = std::move(pConnection);
    m_pPrimary->setOpenProcess(m_pConnection == nullptr ? 0 : m_pConnection->backend().process);
}

}  // namespace store
