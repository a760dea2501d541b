// The handler that lists one level of groups, paged and sorted by the store.
#include <memory>
#include <string>

#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "frame/query_hash.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_core.h"
#include "platform/velq_zem.h"

namespace {

// Objects of the platform that a listing must release.
struct LevelHandles {
    VLIBCSzHash* pHash = NULL;
    _tag_velq_zem_ou_* pHead = NULL;
};

void release_handles(LevelHandles* pHandles)
{
    if (NULL != pHandles->pHead) {
        VELQZEMOuListFree(&pHandles->pHead);
    }
    VLIBCSzHashFree(pHandles->pHash);
}

constexpr const char* szQueryKeys[] = {"offset", "limit", "sort_by", "sort_direction", "ugid", "user_type"};

// Copies the request's parameters into the hash as text; fails on an array or object, which has no text form.
int fill_query(const VELQ::APIRequest& req, VELQ::APIResponse& resp, LevelHandles* pHandles)
{
    for (const char* szKey : szQueryKeys) {
        std::string value;
        if (!req.HasParam(szKey)) {
            continue;
        }
        // The store alone judges the values. The hash takes C strings, so a text with a NUL ends there.
        if (0 > read_text(req.GetParam(szKey, Json::Value()), &value) ||
            0 > VLIBCSzHashSetValue(&pHandles->pHash, szKey, value.c_str())) {
            resp.SetError(errFailed, Json::Value());
            return -1;
        }
    }
    return 0;
}

// Appends the listed groups to the array jObjects.
int list_groups(const VELQ::APIRequest& req, VELQ::APIResponse& resp, LevelHandles* pHandles, Json::Value& jObjects)
{
    pHandles->pHash = alloc_query_hash();
    if (NULL == pHandles->pHash || 0 > fill_query(req, resp, pHandles)) {
        return -1;
    }
    if (0 > VELQZEMListOneLevelByUidHash(pHandles->pHash, &pHandles->pHead, NULL, NULL)) {
        return log_access_denied("0 > VELQZEMListOneLevelByUidHash(pHash, &pHead, NULL, NULL)");
    }
    for (const _tag_velq_zem_ou_* pOu = pHandles->pHead; NULL != pOu; pOu = pOu->pNext) {
        Json::Value jObject(Json::objectValue);
        if (0 > VELQZEMOuStructToJson(pOu, Json::Value(), jObject)) {
            return -1;
        }
        jObjects.append(std::move(jObject));
    }
    return 0;
}

}  // namespace

void list_one_level_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jResult;
    Json::Value jObjects(Json::arrayValue);
    LevelHandles handles;
    const std::unique_ptr<LevelHandles, void (*)(LevelHandles*)> pRelease(&handles, release_handles);

    if (0 > list_groups(*req, *resp, &handles, jObjects)) {
        resp->SetError(errListing, Json::Value());
        return;
    }
    jResult["count"] = Json::Value(jObjects.size());
    jResult["objects"] = std::move(jObjects);
    jResult["offset"] = req->GetParam("offset", Json::Value());
    jResult["total"] = 0;  // fixed: the store's total is not requested
    resp->SetSuccess(jResult);
}
