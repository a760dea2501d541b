// Records when each leased connection last executed a statement. Each thread has one pointer, because it leases one
// connection at a time.
#include "store/sql/last_statement.h"

namespace store {
namespace {

thread_local Activity* tpActivity = nullptr;

}  // namespace

void setActivity(Activity* pActivity) noexcept
{
    tpActivity = pActivity;
    const StatementMark mark;
}

StatementMark::StatementMark() noexcept
{
    if (tpActivity != nullptr) {
        tpActivity->lastStatement = std::chrono::steady_clock::now();
        tpActivity->isWaiting = true;
    }
}

StatementMark::~StatementMark()
{
    if (tpActivity != nullptr) {
        tpActivity->isWaiting = false;
    }
}

}  // namespace store
