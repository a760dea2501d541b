// Sets the account on whose behalf the calling thread calls the store, and ends its request early.
#include "store/rules/acting_account.h"

#include "store/db/transaction.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

// Any change makes the database write those before it to disk, too. This one is undone at once, and yet it counts:
// SQLite writes nothing when all values stay the same.
void writeToDisk(uint64_t reconnects)
{
    inTransaction(Access::write, [](soci::session& sql) {
        for (int times = 0; times < 2; ++times) {
            change(sql, "UPDATE meta SET value = -value WHERE name = 'version'");
        }
    });
    // A database that was lost meanwhile, and is there again, may have forgotten changes.
    require(reconnectCount() == reconnects, EIO, "the database was lost before it had stored all changes");
}

}  // namespace

ActingAccount::ActingAccount(uint32_t uid) : m_uidBefore(threadState().actingUid), m_pWatchBefore(threadState().pWatch)
{
    ThreadState& state = threadState();
    state.actingUid = uid;
    state.pWatch = nullptr;
    state.changes = 0;
    state.reconnects.reset();
    state.changedNodes.clear();
    state.refusal = {};
}

ActingAccount::ActingAccount(uint32_t uid, const RequestWatch& watch) : ActingAccount(uid)
{
    threadState().pWatch = &watch;
}

ActingAccount::~ActingAccount()
{
    ThreadState& state = threadState();
    state.changedNodes.clear();
    state.reconnects.reset();
    state.actingUid = m_uidBefore;
    state.pWatch = m_pWatchBefore;
}

int ActingAccount::makeDurable() noexcept
{
    ThreadState& state = threadState();
    if (!state.reconnects) {
        return 0;
    }
    Cause refusal = takeRefusal();
    const int result = toErrno([&] { writeToDisk(*state.reconnects); });
    state.reconnects.reset();
    if (result == 0) {
        state.refusal = std::move(refusal);
    }
    return result;
}

void requireGoingOn()
{
    const RequestWatch* pWatch = threadState().pWatch;
    const std::string why = pWatch == nullptr || !pWatch->whyToStop ? "" : pWatch->whyToStop();
    if (!why.empty()) {
        throw stopped(why);
    }
}

Refusal stopped(const std::string& why)
{
    const uint64_t changes = threadState().changes;
    return Refusal(ECANCELED,
                   "stopped after " + std::to_string(changes) + (changes == 1 ? " change: " : " changes: ") + why);
}

}  // namespace store
