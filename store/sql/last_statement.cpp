// Records when each leased connection last executed a statement. Each thread has one pointer, because it leases one
// connection at a time.
#include "store/sql/last_statement.h"

namespace store {
namespace {

thread_local StatementTime* tpTime = nullptr;

}  // namespace

void setStatementTime(StatementTime* pTime) noexcept
{
    tpTime = pTime;
    noteStatement();
}

void noteStatement() noexcept
{
    if (tpTime != nullptr) {
        *tpTime = std::chrono::steady_clock::now();
    }
}

}  // namespace store
