// The handler of "VELQ.ZEM.Tree" "get": returns the tree of all nodes that the caller may see.
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "frame/failure_log.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "frame/query_hash.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_core.h"
#include "platform/velq_ui.h"
#include "platform/velq_zem.h"
#include "tree/attached_marker.h"
#include "tree/node_decoration.h"
#include "tree/prefetch.h"
#include "tree/tree_assembly.h"

namespace {

// Objects of the platform that a tree fetch must release.
struct TreeHandles {
    VLIBCSzHash* pHash = NULL;
    _tag_velq_zem_ou_* pHeadOu = NULL;
    _tag_velq_zem_kx_* pHeadKx = NULL;
    _tag_velq_zem_gpo_* pHeadGpo = NULL;
};

void release_handles(TreeHandles* pHandles)
{
    if (NULL != pHandles->pHeadOu) {
        VELQZEMOuListFree(&pHandles->pHeadOu);
    }
    if (NULL != pHandles->pHeadKx) {
        VELQZEMKxListFree(&pHandles->pHeadKx);
    }
    if (NULL != pHandles->pHeadGpo) {
        VELQZEMGpoListFree(&pHandles->pHeadGpo);
    }
    VLIBCSzHashFree(pHandles->pHash);
}

// Allocates the query hash and stores the caller's identity in it.
int make_query(uint32_t uid, TreeHandles* pHandles)
{
    char szUid[32];
    char szUserType[32];

    pHandles->pHash = alloc_query_hash();
    if (NULL == pHandles->pHash) {
        return -1;
    }
    snprintf(szUid, sizeof(szUid), "%u", uid);
    snprintf(szUserType, sizeof(szUserType), "%d", loginUserType);
    if (0 > VLIBCSzHashSetValue(&pHandles->pHash, "ugid", szUid)) {
        return log_failed_call("0 > VLIBCSzHashSetValue(&pHash, \"ugid\", szUid)");
    }
    if (0 > VLIBCSzHashSetValue(&pHandles->pHash, "user_type", szUserType)) {
        return log_failed_call("0 > VLIBCSzHashSetValue(&pHash, \"user_type\", szUserType)");
    }
    return 0;
}

// Returns the next record of a list, or null. Only the store knows the layout of servers and policies, but in every
// kind of record the first member is the pointer to the next one.
template <typename Record>
const Record* next_record(const Record* pRecord)
{
    const Record* pNext = NULL;
    memcpy(&pNext, static_cast<const void*>(pRecord), sizeof(pNext));
    return pNext;
}

// The nodes of a tree as the store's converters made them, and their table for nesting.
struct FlatNodes {
    Json::Value jDataOu{Json::arrayValue};
    Json::Value jDataKx{Json::arrayValue};
    Json::Value jDataGpo{Json::arrayValue};
    NodeTable table;
};

// Converts each record of a list into a node and appends it to the array, in list order.
template <typename Record>
int list_to_json(const Record* pHead, int (*pStructToJson)(const Record*, const Json::Value&, Json::Value&),
                 Json::Value& jArray, std::vector<NodeEntry> NodeTable::*pKind, NodeTable* pTable)
{
    for (const Record* pRecord = pHead; NULL != pRecord; pRecord = next_record(pRecord)) {
        const Json::Value jSearchArray;
        Json::Value jNode(Json::objectValue);
        if (0 > pStructToJson(pRecord, jSearchArray, jNode)) {
            return -1;
        }
        remove_markers_below(jNode);  // nesting would skip a node that arrives with a marker
        add_node_entry(jArray.append(std::move(jNode)), pKind, pTable);
    }
    return 0;
}

// Converts every policy's settings to the version of the user interface; a policy without settings stays unchanged.
int convert_settings(Json::Value& jDataGpo)
{
    Json::Value jUIVersion(Json::objectValue);

    jUIVersion = GetUIVersion(0);
    if (jUIVersion.isNull()) {
        return log_failed_call("jUIVersion.isNull()");
    }
    for (Json::Value& jGpo : jDataGpo) {
        if (NULL == find_member(jGpo, "setting")) {
            log_access_denied("!jDataGpo[i].isMember(\"setting\")");
            continue;
        }
        if (0 > VELQZEMGpoGetWithVersionConvert(jGpo["setting"], jUIVersion)) {
            return log_failed_call("0 > VELQZEMGpoGetWithVersionConvert(jDataGpo[i][\"setting\"], jUIVersion)");
        }
    }
    return 0;
}

// Lists the nodes that the user may see into flat arrays.
int fetch_nodes(uint32_t uid, TreeHandles* pHandles, FlatNodes* pNodes)
{
    NodeTable* pTable = &pNodes->table;

    if (0 > make_query(uid, pHandles)) {
        return -1;
    }
    if (0 > VELQZEMListTreeByUidHash(pHandles->pHash, &pHandles->pHeadOu, &pHandles->pHeadKx, &pHandles->pHeadGpo)) {
        return log_access_denied("0 > VELQZEMListTreeByUidHash(pHash, &pHeadOu, &pHeadKx, &pHeadGpo)");
    }
    if (0 > list_to_json(pHandles->pHeadOu, VELQZEMOuStructToJson, pNodes->jDataOu, &NodeTable::groups, pTable) ||
        0 > list_to_json(pHandles->pHeadKx, VELQZEMKxStructToJson, pNodes->jDataKx, &NodeTable::servers, pTable)) {
        return -1;
    }
    return list_to_json(pHandles->pHeadGpo, VELQZEMGpoStructToJson, pNodes->jDataGpo, &NodeTable::policies, pTable);
}

// Completes the nodes and nests them into jData. If nesting fails, jData stays empty and the result is still 0.
int make_tree(FlatNodes* pNodes, Json::Value& jData)
{
    if (0 > convert_settings(pNodes->jDataGpo)) {
        return -1;
    }
    if (0 > add_info_to_node(pNodes->jDataOu, pNodes->jDataGpo)) {
        return log_failed_call("0 >add_info_to_node(jDataOu, jDataGpo)");
    }
    if (0 > add_info_to_node(pNodes->jDataKx, pNodes->jDataGpo)) {
        return log_failed_call("0 >add_info_to_node(jDataKx, jDataGpo)");
    }
    for (Json::Value& jKx : pNodes->jDataKx) {
        jKx.removeMember("sid");
    }
    BuildTreeJson(pNodes->jDataOu, pNodes->jDataKx, pNodes->jDataGpo, pNodes->table, jData);
    return 0;
}

// Releases the nodes one by one, each with its subtree, prefetching the next one: the library's own destructor waits
// for memory at every member.
void release_nodes(Json::Value& jNodes)
{
    if (!jNodes.empty()) {
        prefetch_members(*jNodes.begin());
    }
    for (auto it = jNodes.begin(), end = jNodes.end(); it != end;) {
        Json::Value& jNode = *it;
        if (++it != end) {
            prefetch_members(*it);
        }
        Json::Value* pjChildren = jNode.isObject() ? &jNode["children"] : NULL;
        if (NULL != pjChildren && pjChildren->isArray()) {
            release_nodes(*pjChildren);
        }
        jNode = Json::Value();
    }
}

}  // namespace

void list_tree_by_uid_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jData(Json::arrayValue);
    FlatNodes nodes;
    TreeHandles handles;
    uint32_t uid = 0;

    if (0 > check_request(req, resp)) {
        return;
    }
    const std::unique_ptr<TreeHandles, void (*)(TreeHandles*)> pRelease(&handles, release_handles);
    if (0 > begin_request(*req, *resp, &uid) || 0 > fetch_nodes(uid, &handles, &nodes) ||
        0 > make_tree(&nodes, jData)) {
        return;
    }
    resp->SetSuccess(jData);
    release_nodes(jData);
}
