// One snapshot for each thread, so that listings on several threads neither wait for one another nor mix.
#include "standin/store/snapshot.h"

#include <algorithm>

namespace standin {
namespace {

thread_local std::unique_ptr<Snapshot> tSnapshot;

bool hasLists(const Snapshot& snapshot)
{
    return std::any_of(snapshot.heads.begin(), snapshot.heads.end(),
                       [](const void* pHead) { return pHead != nullptr; });
}

}  // namespace

const Snapshot* currentSnapshot()
{
    return tSnapshot.get();
}

void keepSnapshot(std::unique_ptr<Snapshot> pSnapshot)
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

}  // namespace standin
