// Counts the lists of a listing that are still in use.
#include "store/nodes/listing_snapshot.h"

#include <algorithm>
#include <utility>

#include "store/base/thread_state.h"

namespace store {

const ListingSnapshot* currentSnapshot()
{
    return threadState().pSnapshot.get();
}

void keepSnapshot(std::unique_ptr<ListingSnapshot> pSnapshot)
{
    threadState().pSnapshot = std::move(pSnapshot);
    releaseFromSnapshot(nullptr);
}

void dropSnapshot()
{
    threadState().pSnapshot.reset();
}

void releaseFromSnapshot(const void* pHead)
{
    ListingSnapshot* pSnapshot = threadState().pSnapshot.get();
    if (pSnapshot == nullptr) {
        return;
    }
    auto& heads = pSnapshot->heads;
    std::replace(heads.begin(), heads.end(), pHead, static_cast<const void*>(nullptr));
    if (std::all_of(heads.begin(), heads.end(), [](const void* pOther) { return pOther == nullptr; })) {
        dropSnapshot();
    }
}

}  // namespace store
