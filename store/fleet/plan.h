// Compares two fleets and plans the changes that lead from one to the other.
#pragma once

#include <bitset>
#include <vector>

#include "store/fleet/fleet.h"
#include "store/store.h"

namespace store {

// The change of one record. The entries belong to the two fleets.
template <typename R>
struct Difference {
    const Entry<R>* pBefore = nullptr;                        // null for a new record
    const Entry<R>* pAfter = nullptr;                         // null for a record that is deleted
    std::bitset<Kind<R>::kFields.size()> changedFields = {};  // by index in kFields; none in a new record
    bool hasOtherDelegates = false;

    bool isNew() const
    {
        return pBefore == nullptr;
    }

    bool isDeleted() const
    {
        return pAfter == nullptr;
    }

    // Returns the record after the change, or before it when the record is deleted.
    const R& record() const
    {
        return isDeleted() ? pBefore->record : pAfter->record;
    }

    // Returns whether the record stays and that member of it gets another value.
    bool changes(auto R::*member) const
    {
        for (size_t i = 0; i < changedFields.size(); ++i) {
            if (changedFields[i] && Kind<R>::kFields[i].member == decltype(Kind<R>::kFields[i].member)(member)) {
                return true;
            }
        }
        return false;
    }
};

// Ascending by identifiers.
template <typename R>
using Differences = std::vector<Difference<R>>;

// The records that differ between two fleets. Refers to both, which must outlive it.
struct Plan {
    Differences<AccountRow> accounts;
    Differences<Group> groups;
    Differences<Policy> policies;
    Differences<Server> servers;
};

// Compares two fleets. Throws nothing but std::bad_alloc. Any thread may call it.
Plan makePlan(const Fleet& before, const Fleet& after);

// Counts the records that the plan creates, changes and deletes.
PlanCount countOf(const Plan& plan);

}  // namespace store
