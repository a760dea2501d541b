// What a tree listing read besides its lists: policies, delegates and account names as of the same moment, kept for the
// listing's thread until the last of its lists is released or the thread writes, so that decorating the nodes needs no
// further SQL. Each thread has one snapshot or none; every function here is about that of the calling thread.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "store/records/records.h"

namespace store {

struct ListingSnapshot {
    std::array<const void*, 3> heads{};  // of the lists that are not released yet
    std::unordered_map<int64_t, Policy> policies;
    std::map<int, std::unordered_map<int64_t, std::vector<Delegate>>> delegates;  // by kind and identifier of the node
    std::unordered_map<uint64_t, VLIBCString> extraInfo;                          // of the accounts, by uid
};

// The snapshot, null when there is none. Valid until the thread keeps another one, releases a list or writes.
const ListingSnapshot* currentSnapshot();

// Takes the snapshot in place of an earlier one. One without lists is not kept.
void keepSnapshot(std::unique_ptr<ListingSnapshot> pSnapshot);

// Releases the snapshot, if there is one.
void dropSnapshot();

// Notes that the caller releases the list with that head; the snapshot goes with the last of its lists.
void releaseFromSnapshot(const void* pHead);

}  // namespace store
