// Commits the changes that the platform's functions make, and writes the operator's log of them: the lines that
// setChangeSink() of store.h describes.
#pragma once

#include <string>

#include "store/db/transaction.h"
#include "store/records/record_checks.h"
#include "store/records/records.h"
#include "store/rules/acting_account.h"
#include "store/rules/rights.h"

namespace store {

// Returns the log line for a change that the acting account is about to commit. rights: of that account. Returns an
// empty text when nothing changed or no sink is set. szKind: Kind<R>::kName; what: the change of the record, empty when
// nothing changed.
std::string changeLine(const Rights& rights, const char* szKind, int64_t id, const std::string& what);

// Gives the line of a committed change to the sink, unless it is empty. Leaves errno as it is.
void logChange(const std::string& line) noexcept;

// Remembers that the acting account has changed the group or server, whose notice then needs no further right.
void rememberChange(int nodeType, int64_t id) noexcept;

// Runs work(soci::session&) in a writing transaction for a change of the acting account, and returns the work's result.
// Throws as inTransaction and requireGoingOn.
template <typename Work>
auto inChange(Work&& work)
{
    auto result = inTransaction(accessForChange(threadState().changes + 1), [&](soci::session& sql) {
        requireGoingOn();
        return work(sql);
    });
    ++threadState().changes;
    return result;
}

// Runs work(soci::session&), which returns its changeLine(), in a writing transaction, and logs the change once it is
// committed. Returns 0 with errno as it was, or -1 with errno and the thread's refusal.
template <typename Work>
int commitChange(Work&& work) noexcept
{
    return toErrno([&] { logChange(inChange(work)); });
}

// Does the same with work(soci::session&, R&, const CheckedLinks&), which changes a copy of the record; the record
// takes the copy's values once they are committed. The record's texts are checked before the transaction, as
// checkTexts() does. EINVAL when pRecord is null.
template <typename R, typename Work>
int commitChange(R* pRecord, Work&& work) noexcept
{
    return toErrno([&] {
        requireArguments(pRecord);
        const CheckedLinks checked = checkTexts(*pRecord);
        R changed;
        const std::string line = inChange([&](soci::session& sql) {
            changed = *pRecord;
            return work(sql, changed, checked);
        });
        *pRecord = changed;
        rememberChange(Kind<R>::kType, changed.id);
        logChange(line);
    });
}

}  // namespace store
