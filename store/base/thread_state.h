// Declares the state that the store keeps for each thread between two calls.
//
// The platform's functions have no argument for the account or for results that outlast a call, so the store keeps
// these here. The state changes the effect of the thread's next calls:
// - While an account acts, writing functions check its rights (ActingAccount in store.h sets it).
// - While the thread holds lists of a tree listing, VELQZEMGpoGet and the functions that read delegates answer from the
//   snapshot that the listing took, without SQL. The thread's own writing transaction drops the snapshot, so that a
//   thread always sees its own changes.
// - A notice to servers needs no right on a node that the acting account has changed itself: the change may have given
//   the right away, and the servers must hear of it all the same.
// - takeRefusal() in store.h returns the reason why the last call failed, which is kept here.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "store/store.h"

namespace store {

struct ListingSnapshot;  // nodes/listing_snapshot.h
struct RequestWatch;     // store.h

struct ThreadState {
    std::optional<uint32_t> actingUid;               // nothing: everything is allowed
    const RequestWatch* pWatch = nullptr;            // of the acting account's request; null: there is none
    uint64_t changes = 0;                            // committed since actingUid was set
    std::optional<uint64_t> reconnects;              // their count before the first change that may not be on disk yet
    std::set<std::pair<int, int64_t>> changedNodes;  // by node type and identifier; changed since actingUid was set
    std::shared_ptr<ListingSnapshot> pSnapshot;      // null: there is none
    Cause refusal;                                   // empty: the last call did not fail
};

// Returns the state of the calling thread.
ThreadState& threadState() noexcept;

}  // namespace store
