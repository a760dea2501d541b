// Delegates and account names as rows and as records, for the delegate calls, the tree listing and the fleet loader.
#pragma once

#include <vector>

#include "store/records/records.h"
#include "store/records/rows.h"

namespace store {

// The delegate as the lists show it, its extra information empty.
Delegate delegateOf(const DelegateRow& row);

// The account's names as JSON object text, for the extra information of a delegate.
VLIBCString extraInfoOf(const AccountRow& account);

// Gives the inserter the accounts with these uids, in this order, as the delegates of a node that has none. Runs in the
// inserter's transaction; throws DatabaseError.
void insertDelegates(Inserter<DelegateRow>& inserter, int nodeType, int64_t id, const std::vector<int64_t>& ugids);

}  // namespace store
