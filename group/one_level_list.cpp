// The paged, sorted listing of one level of groups. Paging, sorting and rights are the store's work: the parameters are
// handed on as text.
#include <string>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_core.h"
#include "platform/velq_zem.h"

namespace {

constexpr const char* szQueryKeys[] = {"offset", "limit", "sort_by", "sort_direction", "ugid", "user_type"};

// Copies the parameters that the request carries into the hash. A value that has no text form cannot be stored.
int fill_query(const VELQ::APIRequest& req, VELQ::APIResponse& resp, VLIBCSzHash*& pHash)
{
    for (const char* szKey : szQueryKeys) {
        std::string value;
        if (!req.HasParam(szKey)) {
            continue;
        }
        if (0 > read_text(req.GetParam(szKey, Json::Value()), &value) ||
            0 > VLIBCSzHashSetValue(&pHash, szKey, value.c_str())) {
            resp.SetError(117, Json::Value());
            return -1;
        }
    }
    return 0;
}

// Lists the groups into jObjects, an array. The hash and the head are released by the caller.
int list_groups(const VELQ::APIRequest& req, VELQ::APIResponse& resp, VLIBCSzHash*& pHash, _tag_velq_zem_ou_*& pHead,
                Json::Value& jObjects)
{
    pHash = VLIBCSzHashAlloc(512);
    if (NULL == pHash) {
        log_malloc_hash();
        return -1;
    }
    if (0 > fill_query(req, resp, pHash)) {
        return -1;
    }
    if (0 > VELQZEMListOneLevelByUidHash(pHash, &pHead, NULL, NULL)) {
        log_access_denied("0 > VELQZEMListOneLevelByUidHash(pHash, &pHead, NULL, NULL)");
        return -1;
    }
    for (const _tag_velq_zem_ou_* pOu = pHead; NULL != pOu; pOu = pOu->pNext) {
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
    VLIBCSzHash* pHash = NULL;
    _tag_velq_zem_ou_* pHead = NULL;

    if (0 == list_groups(*req, *resp, pHash, pHead, jObjects)) {
        jResult["count"] = Json::Value(jObjects.size());
        jResult["objects"] = std::move(jObjects);
        jResult["offset"] = req->GetParam("offset", Json::Value());
        jResult["total"] = 0;  // the store is not asked for one
        resp->SetSuccess(jResult);
    } else {
        resp->SetError(500, Json::Value());
    }
    if (NULL != pHead) {
        VELQZEMOuListFree(&pHead);
    }
    VLIBCSzHashFree(pHash);
}
