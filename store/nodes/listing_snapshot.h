// Keeps the records that a tree listing read besides its lists, so that completing the nodes needs no further SQL.
//
// A thread has one snapshot or none; ThreadState holds it. The snapshot is dropped when the last list of its listing is
// released, when the thread lists again and when the thread writes. Every function here works on the snapshot of the
// calling thread.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "store/records/records.h"

namespace store {

// Policies, delegates and account names, all as of the moment of the listing.
struct ListingSnapshot {
    std::array<const void*, 3> heads{};  // of the lists that are not released yet
    std::unordered_map<int64_t, Policy> policies;
    std::map<int, std::unordered_map<int64_t, std::vector<Delegate>>> delegates;  // by kind and identifier of the node
    std::unordered_map<uint64_t, VLIBCString> extraInfo;                          // of the accounts, by uid
};

// Returns the snapshot, null when there is none. It stays valid until the thread keeps another one, releases a list or
// writes.
const ListingSnapshot* currentSnapshot();

// Keeps the snapshot in place of an earlier one. One without lists is not kept.
void keepSnapshot(std::unique_ptr<ListingSnapshot> pSnapshot);

// Releases the snapshot, if there is one.
void dropSnapshot();

// Call it when the list with that head is released. Drops the snapshot with the last of its lists.
void releaseFromSnapshot(const void* pHead);

}  // namespace store
