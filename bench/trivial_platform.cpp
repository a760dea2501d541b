// Implements the platform for benchmarks; the only call that can fail is reading a policy that does not exist.
#include "bench/trivial_platform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "platform/velq_core.h"
#include "platform/velq_ui.h"
#include "platform/velq_webapi.h"
#include "platform/velq_zem.h"

struct _tag_velq_zem_kx_ {
    _tag_velq_zem_kx_* pNext = nullptr;
    const Json::Value* pjNode = nullptr;
};

struct _tag_velq_zem_gpo_ {
    _tag_velq_zem_gpo_* pNext = nullptr;
    const Json::Value* pjNode = nullptr;
    int64_t id = 0;
};

struct VLIBCSzHash {};

int giTerminalDebug = 0;

namespace bench {

TrivialPlatform platform;

namespace {

// The next group to convert. A group's record has no member for a pointer to its node, but groups are converted in
// order.
Json::ArrayIndex gNextGroup = 0;

template <typename R>
void freeList(R** ppHead)
{
    while (*ppHead != nullptr) {
        R* pRecord = *ppHead;
        *ppHead = pRecord->pNext;
        delete pRecord;
    }
}

template <typename R>
R* makeList(const Json::Value& jNodes, void (*take)(R*, const Json::Value&))
{
    R* pHead = nullptr;
    R** ppEnd = &pHead;
    for (const Json::Value& jNode : jNodes) {
        *ppEnd = new R;
        take(*ppEnd, jNode);
        ppEnd = &(*ppEnd)->pNext;
    }
    return pHead;
}

int copyText(char* szBuf, size_t cbBuf, const std::string& text)
{
    snprintf(szBuf, cbBuf, "%s", text.c_str());
    return 0;
}

}  // namespace

}  // namespace bench

using bench::platform;

extern "C" void syslog(int, const char*, ...) {}

VLIBCString::VLIBCString() = default;
VLIBCString::VLIBCString(const VLIBCString& other) = default;
VLIBCString& VLIBCString::operator=(const VLIBCString& other) = default;
VLIBCString::~VLIBCString() = default;

const char* VLIBCString::c_str() const
{
    return "";
}

VLIBCSzHash* VLIBCSzHashAlloc(int)
{
    return new VLIBCSzHash;
}

int VLIBCSzHashSetValue(VLIBCSzHash**, const char*, const char*)
{
    return 0;
}

void VLIBCSzHashFree(VLIBCSzHash* pHash)
{
    delete pHash;
}

VELQ::APIRequest::APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams)
    : m_loginUid(loginUid), m_loginUserName(std::move(loginUserName)), m_jParams(std::move(jParams))
{
}

uint32_t VELQ::APIRequest::GetLoginUID() const
{
    return m_loginUid;
}

void VELQ::APIResponse::SetError(int code, const Json::Value&)
{
    m_success = false;
    m_errorCode = code;
}

void VELQ::APIResponse::SetSuccess(const Json::Value&)
{
    m_success = true;
}

bool VELQ::APIResponse::IsSuccess() const
{
    return m_success;
}

Json::Value GetUIVersion(int)
{
    return Json::Value(Json::Int64{3});
}

void VELQZEMOuListFree(_tag_velq_zem_ou_** ppHead)
{
    bench::freeList(ppHead);
}

void VELQZEMKxListFree(_tag_velq_zem_kx_** ppHead)
{
    bench::freeList(ppHead);
}

void VELQZEMGpoListFree(_tag_velq_zem_gpo_** ppHead)
{
    bench::freeList(ppHead);
}

int VELQZEMOuStructToJson(const _tag_velq_zem_ou_*, const Json::Value&, Json::Value& jOut)
{
    jOut = platform.jOu[bench::gNextGroup++];
    return 0;
}

int VELQZEMKxStructToJson(const _tag_velq_zem_kx_* pKx, const Json::Value&, Json::Value& jOut)
{
    jOut = *pKx->pjNode;
    return 0;
}

int VELQZEMGpoStructToJson(const _tag_velq_zem_gpo_* pGpo, const Json::Value&, Json::Value& jOut)
{
    jOut = *pGpo->pjNode;
    return 0;
}

int VELQZEMListTreeByUidHash(VLIBCSzHash*, _tag_velq_zem_ou_** ppOu, _tag_velq_zem_kx_** ppKx,
                             _tag_velq_zem_gpo_** ppGpo)
{
    bench::gNextGroup = 0;
    *ppOu = bench::makeList<_tag_velq_zem_ou_>(platform.jOu, [](_tag_velq_zem_ou_*, const Json::Value&) {});
    *ppKx = bench::makeList<_tag_velq_zem_kx_>(
        platform.jKx, [](_tag_velq_zem_kx_* pKx, const Json::Value& jNode) { pKx->pjNode = &jNode; });
    *ppGpo = bench::makeList<_tag_velq_zem_gpo_>(
        platform.jGpo, [](_tag_velq_zem_gpo_* pGpo, const Json::Value& jNode) { pGpo->pjNode = &jNode; });
    return 0;
}

_tag_velq_zem_gpo_* VELQZEMGpoAlloc(void)
{
    return new _tag_velq_zem_gpo_;
}

void VELQZEMGpoFree(_tag_velq_zem_gpo_* pGpo)
{
    delete pGpo;
}

int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo)
{
    pGpo->id = id;
    if (id >= 0 && static_cast<size_t>(id) < platform.policyNames.size()) {
        return 0;
    }
    errno = ENOENT;
    return -1;
}

int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo)
{
    return bench::copyText(szBuf, cbBuf, platform.policyNames[static_cast<size_t>(pGpo->id)]);
}

int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_*)
{
    return bench::copyText(szBuf, cbBuf, "what the policy does");
}

int VELQZEMGpoGetWithVersionConvert(Json::Value&, Json::Value&)
{
    return 0;
}

int VELQZEMDelegateListByTarget(int64_t, int, _tag_velq_zem_delegate_** ppHead, int*)
{
    *ppHead = nullptr;
    return 0;
}

int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_*, BOOL)
{
    return 0;
}

int VELQZEMDelegateItemGetUserType(int64_t*, const _tag_velq_zem_delegate_*)
{
    return 0;
}

int VELQZEMDelegateItemGetUGID(uint64_t*, const _tag_velq_zem_delegate_*)
{
    return 0;
}

_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem)
{
    return pItem->pNext;
}
