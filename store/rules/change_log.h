// The operator's log of committed changes: the lines that setChangeSink of store.h describes.
#pragma once

#include <string>

#include "store/db/transaction.h"
#include "store/records/records.h"
#include "store/rules/rights.h"

namespace store {

// The line for a change that the calling thread's caller, whose rights those are, is about to commit; empty when
// nothing changed or nobody listens. szKind: Kind<R>::kName; what: what became of the record, empty for nothing.
std::string changeLine(const Rights& rights, const char* szKind, int64_t id, const std::string& what);

// Gives the sink the line of a committed change, unless it is empty. errno is left as it is.
void tellChange(const std::string& line) noexcept;

// The members in which the records differ, but for those that the store alone writes, separated by commas.
template <typename R>
std::string changedMembers(const R& before, const R& after)
{
    std::string members;
    for (const Field<R>& field : Kind<R>::kFields) {
        if (field.kind != FieldKind::storeManaged && !isSame(field, before, after)) {
            members += (members.empty() ? "" : ",") + std::string(field.name);
        }
    }
    return members;
}

// Runs work(soci::session&), which returns its changeLine(), in a writing transaction, as inTransaction() does, and
// tells of the change once that is committed: 0 and errno as it was, or -1 with errno.
template <typename Work>
int changing(Work&& work) noexcept
{
    std::string line;
    const int result = writing([&](soci::session& sql) { line = work(sql); });
    if (result == 0) {
        tellChange(line);
    }
    return result;
}

// The same for a work(soci::session&, R&) on a copy of the record, which becomes the caller's record once committed.
template <typename R, typename Work>
int changeRecord(R* pRecord, Work&& work) noexcept
{
    if (pRecord == nullptr) {
        return toErrno([] { requireArguments<void>(nullptr); });
    }
    R changed;
    const int result = changing([&](soci::session& sql) {
        changed = *pRecord;
        return work(sql, changed);
    });
    if (result == 0) {
        *pRecord = changed;
    }
    return result;
}

}  // namespace store
