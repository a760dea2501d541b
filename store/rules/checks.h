// Checks a record against the store before it is written. The functions run in the caller's transaction and throw
// Refusal or InvalidInput.
#pragma once

#include <cstdint>

#include <soci/soci.h>

#include "store/base/errors.h"
#include "store/records/link_rows.h"
#include "store/records/record_checks.h"
#include "store/rules/rights.h"

namespace store {

// Throws Refusal ENOENT unless the group or server exists. Call it after rights.requireNode() of the same node.
void requireExisting(soci::session& sql, const Rights& rights, int nodeType, int64_t id);

// Returns the refusal of a record whose parent group does not exist: ENOENT.
Refusal noSuchParent(int64_t id);

// Checks the lengths and links of a group or server that is to replace the stored one, and brings its links to the form
// that is stored. Returns how its links change. checked: what checkTexts() returned for the record. stored: for a new
// record, a default one. Throws, with EINVAL, for a new name without a visible character, a text that is too long,
// links of a wrong form, a policy linked twice and a newly linked policy that does not exist; with EACCES instead when
// the account is restricted and does not see that policy; with EDQUOT as checkQuota(). Links that the stored record has
// are not looked up.
template <typename R>
LinkChange checkRecord(soci::session& sql, const Rights& rights, R& record, const CheckedLinks& checked,
                       const R& stored);

// Checks that the group or server may replace the stored one. Throws EAGAIN when the stored one was changed since the
// record was loaded, EACCES for a new parent group that the account may not manage, ENOENT for one that does not exist,
// and as checkRecord().
template <typename R>
LinkChange checkReplacement(soci::session& sql, const Rights& rights, R& record, const CheckedLinks& checked,
                            const R& stored);

}  // namespace store
