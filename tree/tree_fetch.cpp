// The handler of "VELQ.ZEM.Tree" "get": lists what the caller may see, decorates it, nests it, answers it.
#include "tree/tree_fetch.h"

#include <cstdio>
#include <cstring>

#include "frame/failure_log.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_core.h"
#include "platform/velq_ui.h"
#include "platform/velq_zem.h"
#include "tree/node_decoration.h"
#include "tree/node_postprocess.h"
#include "tree/tree_assembly.h"

namespace {

constexpr int loginUserType = 8;  // the store's name for the view of a logged-in user

// Fills the query hash with the caller's identity. The handle may be replaced; the caller releases it in any case.
int fill_query(uint32_t uid, VLIBCSzHash*& pHash)
{
    char szUid[32];
    char szUserType[32];

    pHash = VLIBCSzHashAlloc(512);
    if (NULL == pHash) {
        log_malloc_hash();
        return -1;
    }
    snprintf(szUid, sizeof(szUid), "%u", uid);
    snprintf(szUserType, sizeof(szUserType), "%d", loginUserType);
    if (0 > VLIBCSzHashSetValue(&pHash, "ugid", szUid)) {
        log_failed_call("0 > VLIBCSzHashSetValue(&pHash, \"ugid\", szUid)");
        return -1;
    }
    if (0 > VLIBCSzHashSetValue(&pHash, "user_type", szUserType)) {
        log_failed_call("0 > VLIBCSzHashSetValue(&pHash, \"user_type\", szUserType)");
        return -1;
    }
    return 0;
}

// The record after this one: the first member of every kind of record, whose layout beyond it is the store's.
template <typename Record>
const Record* next_record(const Record* pRecord)
{
    const Record* pNext = NULL;
    memcpy(&pNext, static_cast<const void*>(pRecord), sizeof(pNext));
    return pNext;
}

// Takes out nesting markers that come with a record: the nesting would pass such a node over.
void remove_markers(Json::Value& jNode)
{
    if (!jNode.isObject()) {
        return;
    }
    jNode.removeMember("find_parent");
    if (NULL == find_member(jNode, "children") || !jNode["children"].isArray()) {
        return;
    }
    for (Json::Value& jChild : jNode["children"]) {
        remove_markers(jChild);
    }
}

// Appends the records of a chain to the array as node objects, in chain order.
template <typename Record>
int chain_to_json(const Record* pHead, int (*pStructToJson)(const Record*, const Json::Value&, Json::Value&),
                  Json::Value& jArray)
{
    for (const Record* pRecord = pHead; NULL != pRecord; pRecord = next_record(pRecord)) {
        const Json::Value jSearchArray;
        Json::Value jNode(Json::objectValue);
        if (0 > pStructToJson(pRecord, jSearchArray, jNode)) {
            return -1;
        }
        remove_markers(jNode);
        jArray.append(std::move(jNode));
    }
    return 0;
}

// Raises every policy's settings to the version of the user interface; a policy without settings stays as it is.
int convert_settings(Json::Value& jDataGpo)
{
    Json::Value jUIVersion(Json::objectValue);

    jUIVersion = GetUIVersion(0);
    if (jUIVersion.isNull()) {
        log_failed_call("jUIVersion.isNull()");
        return -1;
    }
    for (Json::Value& jGpo : jDataGpo) {
        if (NULL == find_member(jGpo, "setting")) {
            log_access_denied("!jDataGpo[i].isMember(\"setting\")");
            continue;
        }
        if (0 > VELQZEMGpoGetWithVersionConvert(jGpo["setting"], jUIVersion)) {
            log_failed_call("0 > VELQZEMGpoGetWithVersionConvert(jDataGpo[i][\"setting\"], jUIVersion)");
            return -1;
        }
    }
    return 0;
}

// Decorates the nodes and nests them into jData. What nesting cannot place is logged and is no failure.
int make_tree(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData)
{
    if (0 > convert_settings(jDataGpo)) {
        return -1;
    }
    if (0 > add_info_to_node(jDataOu, jDataGpo)) {
        log_failed_call("0 >add_info_to_node(jDataOu, jDataGpo)");
        return -1;
    }
    if (0 > add_info_to_node(jDataKx, jDataGpo)) {
        log_failed_call("0 >add_info_to_node(jDataKx, jDataGpo)");
        return -1;
    }
    for (Json::Value& jKx : jDataKx) {
        jKx.removeMember("sid");
    }
    BuildTreeJson(jDataOu, jDataKx, jDataGpo, jData);
    return 0;
}

// Lists what the uid may see and makes the tree of it. The heads and the hash are released by the caller.
int fetch_tree(uint32_t uid, VLIBCSzHash*& pHash, _tag_velq_zem_ou_*& pHeadOu, _tag_velq_zem_kx_*& pHeadKx,
               _tag_velq_zem_gpo_*& pHeadGpo, Json::Value& jData)
{
    Json::Value jDataOu(Json::arrayValue);
    Json::Value jDataKx(Json::arrayValue);
    Json::Value jDataGpo(Json::arrayValue);

    if (0 > fill_query(uid, pHash)) {
        return -1;
    }
    if (0 > VELQZEMListTreeByUidHash(pHash, &pHeadOu, &pHeadKx, &pHeadGpo)) {
        log_access_denied("0 > VELQZEMListTreeByUidHash(pHash, &pHeadOu, &pHeadKx, &pHeadGpo)");
        return -1;
    }
    if (0 > chain_to_json(pHeadOu, VELQZEMOuStructToJson, jDataOu) ||
        0 > chain_to_json(pHeadKx, VELQZEMKxStructToJson, jDataKx) ||
        0 > chain_to_json(pHeadGpo, VELQZEMGpoStructToJson, jDataGpo)) {
        return -1;
    }
    return make_tree(jDataOu, jDataKx, jDataGpo, jData);
}

}  // namespace

void list_tree_by_uid_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jData(Json::arrayValue);
    VLIBCSzHash* pHash = NULL;
    _tag_velq_zem_ou_* pHeadOu = NULL;
    _tag_velq_zem_kx_* pHeadKx = NULL;
    _tag_velq_zem_gpo_* pHeadGpo = NULL;
    uint32_t uid = 0;

    if (0 > check_request(req, resp)) {
        return;
    }
    if (0 == begin_request(*req, *resp, &uid) && 0 == fetch_tree(uid, pHash, pHeadOu, pHeadKx, pHeadGpo, jData)) {
        resp->SetSuccess(jData);
    }
    if (NULL != pHeadOu) {
        VELQZEMOuListFree(&pHeadOu);
    }
    if (NULL != pHeadKx) {
        VELQZEMKxListFree(&pHeadKx);
    }
    if (NULL != pHeadGpo) {
        VELQZEMGpoListFree(&pHeadGpo);
    }
    VLIBCSzHashFree(pHash);
}

int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData)
{
    if (!jDataOu.isArray() || !jDataKx.isArray() || !jDataGpo.isArray() || !jData.isArray()) {
        log_bad_parameter();
        return -1;
    }
    // Taken over, not copied: nobody looks at the flat arrays again.
    Json::Value jOu(std::move(jDataOu));
    Json::Value jKx(std::move(jDataKx));
    Json::Value jGpo(std::move(jDataGpo));

    if (0 > ConvertTreeJsonToParent(&jOu, &jOu, &jData)) {
        log_failed_call("0 >ConvertTreeJsonToParent(&jOu, &jOu, &jData)");
        return -1;
    }
    if (0 > ConvertTreeJsonToParent(&jKx, &jData, NULL)) {
        log_failed_call("0 >ConvertTreeJsonToParent(&jKx, &jData, NULL)");
        return -1;
    }
    if (0 > ConvertTreeJsonToParent(&jGpo, &jData, NULL)) {
        log_failed_call("0 >ConvertTreeJsonToParent(&jGpo, &jData, NULL)");
        return -1;
    }
    for (Json::Value& jNode : jData) {
        if (0 > postHandleNode(jNode)) {
            log_access_denied("0 > postHandleNode(jData[i])");
        }
    }
    return 0;
}
