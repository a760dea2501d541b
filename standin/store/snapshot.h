// What a tree listing read besides its lists: policies, delegates and account names as of the same moment, kept for the
// listing's thread until the last of its lists is released, so that decorating the nodes needs no further SQL.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "standin/store/records.h"

namespace standin {

struct Snapshot {
    std::array<const void*, 3> heads{};  // of the lists that are not released yet
    std::unordered_map<int64_t, Policy> policies;
    std::map<int, std::unordered_map<int64_t, std::vector<Delegate>>> delegates;  // by kind and identifier of the node
    std::unordered_map<uint64_t, VLIBCString> extraInfo;                          // of the accounts, by uid
};

// The calling thread's snapshot, null when it has none. Valid until the thread's next call of the store.
const Snapshot* currentSnapshot();

// Makes the snapshot the calling thread's. One without lists is not kept.
void keepSnapshot(std::unique_ptr<Snapshot> pSnapshot);

void dropSnapshot();

// The list with that head is released.
void releaseFromSnapshot(const void* pHead);

}  // namespace standin
