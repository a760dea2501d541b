// One snapshot for each thread, so that listings on several threads neither wait for one another nor mix.
#include "store/nodes/listing_snapshot.h"

#include <algorithm>

namespace store {
namespace {

thread_local std::unique_ptr<ListingSnapshot> tSnapshot;

bool hasLists(const ListingSnapshot& snapshot)
{
    return std::any_of(snapshot.heads.begin(), snapshot.heads.end(),
                       [](const void* pHead) { return pHead != nullptr; });
}

}  // namespace

const ListingSnapshot* currentSnapshot()
{
    return tSnapshot.get();
}

void keepSnapshot(std::unique_ptr<ListingSnapshot> pSnapshot)
{
    tSnapshot = std::move(pSnapshot);
    releaseFromSnapshot(nullptr);
}

void dropSnapshot()
{
    tSnapshot.reset();
}

void releaseFromSnapshot(const void* pHead)
{
    if (tSnapshot == nullptr) {
        return;
    }
    std::replace(tSnapshot->heads.begin(), tSnapshot->heads.end(), pHead, static_cast<const void*>(nullptr));
    if (!hasLists(*tSnapshot)) {
        dropSnapshot();
    }
}

}  // namespace store
