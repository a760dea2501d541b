// Converts the delegates of groups and servers between rows, items of a list and the JSON of a request.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <json/value.h>

#include "store/records/records.h"
#include "store/records/rows.h"

namespace store {

// Returns the account uids of "delegate", an array of {"ugid":N,"user_type":2}, in their order. Throws InvalidInput for
// another form, for a uid that occurs twice and for one that is not known. Any thread may call it.
std::vector<int64_t> delegateUgids(const Json::Value& jDelegates, const std::function<bool(int64_t)>& isKnown);

// Returns the list item of the row, without extra information.
Delegate delegateOf(const DelegateRow& row);

// Returns the account's names as JSON object text, for the extra information of a delegate.
VLIBCString extraInfoOf(const AccountRow& account);

// Inserts the accounts with these uids, in this order, as the delegates of a node that has none. The caller flushes the
// inserter. Runs in the inserter's transaction; throws DatabaseError.
void insertDelegates(Inserter<DelegateRow>& inserter, int nodeType, int64_t id, const std::vector<int64_t>& ugids);

}  // namespace store
