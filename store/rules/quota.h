// Bounds what the groups and servers that one account manages may hold together.
#pragma once

#include <cstdint>

#include <soci/soci.h>

#include "store/rules/rights.h"

namespace store {

// Throws Refusal EDQUOT when a change of the acting account would exceed the quota that setQuota() of store.h
// describes. newGroups: the number of groups that it adds. addedBytes: by how much the texts of the record grow. A
// change that adds neither is allowed; without a quota, and for an unrestricted account, everything is. Call it in the
// transaction, before the change.
void checkQuota(soci::session& sql, const Rights& rights, int64_t newGroups, int64_t addedBytes);

}  // namespace store
