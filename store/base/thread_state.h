// What the store remembers for a thread between two of its calls.
//
// The platform's functions take neither a session nor an account, so what they need besides their arguments stands
// here, and it changes what the thread's next calls do:
// - While an account acts, writing functions check its rights (ActingAccount in store.h sets it).
// - While the thread holds lists of a tree listing, VELQZEMGpoGet and the functions that read delegates answer from the
//   snapshot that the listing took, without SQL. The thread's own writing transaction drops the snapshot, so that a
//   thread always sees its own changes.
// - takeRefusal() in store.h hands over why the last call failed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace store {

struct ListingSnapshot;  // nodes/listing_snapshot.h

struct ThreadState {
    std::optional<uint32_t> actingUid;           // nothing: everything is allowed
    bool hasCommitted = false;                   // a change, since actingUid was set
    std::shared_ptr<ListingSnapshot> pSnapshot;  // null: there is none
    std::string refusal;                         // for people; empty: the last call did not fail
};

// The calling thread's own.
ThreadState& threadState() noexcept;

}  // namespace store
