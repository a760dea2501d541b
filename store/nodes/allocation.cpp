// Allocates and releases groups, servers, policies and lists of them.
#include "store/base/errors.h"
#include "store/nodes/listing_snapshot.h"
#include "store/records/records.h"

namespace store {
namespace {

template <typename R>
R* alloc()
{
    R* pRecord = nullptr;
    toErrno([&pRecord] { pRecord = new R; });
    return pRecord;
}

template <typename R>
void freeList(R** ppHead)
{
    if (ppHead == nullptr) {
        return;
    }
    const int saved = errno;
    releaseFromSnapshot(*ppHead);
    freeChain(*ppHead);
    *ppHead = nullptr;
    errno = saved;
}

}  // namespace
}  // namespace store

using namespace store;

_tag_velq_zem_ou_* VELQZEMOuAlloc(void)
{
    return alloc<Group>();
}

_tag_velq_zem_kx_* VELQZEMKxAlloc(void)
{
    return alloc<Server>();
}

_tag_velq_zem_gpo_* VELQZEMGpoAlloc(void)
{
    return alloc<Policy>();
}

void VELQZEMOuFree(_tag_velq_zem_ou_* pOu)
{
    delete pOu;
}

void VELQZEMKxFree(_tag_velq_zem_kx_* pKx)
{
    delete pKx;
}

void VELQZEMGpoFree(_tag_velq_zem_gpo_* pGpo)
{
    delete pGpo;
}

void VELQZEMOuListFree(_tag_velq_zem_ou_** ppHead)
{
    freeList(ppHead);
}

void VELQZEMKxListFree(_tag_velq_zem_kx_** ppHead)
{
    freeList(ppHead);
}

void VELQZEMGpoListFree(_tag_velq_zem_gpo_** ppHead)
{
    freeList(ppHead);
}
