// Adds a policy to the ordered links of a group or server, or removes it, by loading, changing and storing its record.
#include <memory>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_lib.h"
#include "platform/velq_zem.h"

namespace {

// The store calls of one kind of record, each with the text that is logged when it fails.
template <typename Record>
struct RecordCalls {
    Record* (*pAlloc)(void);
    const char* szAlloc;
    int (*pGet)(int64_t, Record*);
    const char* szGet;
    int (*pStructToJson)(const Record*, const Json::Value&, Json::Value&);
    const char* szStructToJson;
    int (*pJsonToStruct)(Json::Value&, Record*);
    const char* szJsonToStruct;
    int (*pSet)(Record*);
    const char* szSet;
    void (*pFree)(Record*);
};

constexpr RecordCalls<_tag_velq_zem_ou_> ouCalls = {
    VELQZEMOuAlloc,        "NULL == (pNode = VELQZEMOuAlloc())",
    VELQZEMOuGet,          "0 > VELQZEMOuGet(jData[\"node_id\"].asInt64(), pNode)",
    VELQZEMOuStructToJson, "0 > VELQZEMOuStructToJson(pNode, jSearchArray, jNode)",
    VELQZEMOuJsonToStruct, "0 > VELQZEMOuJsonToStruct(jNode, pNode)",
    VELQZEMOuSet,          "0 > VELQZEMOuSet(pNode)",
    VELQZEMOuFree,
};

constexpr RecordCalls<_tag_velq_zem_kx_> kxCalls = {
    VELQZEMKxAlloc,        "NULL == (pNode = VELQZEMKxAlloc())",
    VELQZEMKxGet,          "0 > VELQZEMKxGet(jData[\"node_id\"].asInt64(), pNode)",
    VELQZEMKxStructToJson, "0 > VELQZEMKxStructToJson(pNode, jSearchArray, jNode)",
    VELQZEMKxJsonToStruct, "0 > VELQZEMKxJsonToStruct(jNode, pNode)",
    VELQZEMKxSet,          "0 > VELQZEMKxSet(pNode)",
    VELQZEMKxFree,
};

// Reads a number that the request must contain; null counts as missing.
int read_id(const Json::Value& jData, const char* szName, int64_t* pId)
{
    const Json::Value* pjId = find_member(jData, szName);
    return NULL == pjId || pjId->isNull() ? -1 : read_member(jData, szName, pId);
}

bool is_null_or(Json::ValueType type, const Json::Value* pjValue)
{
    return NULL == pjValue || pjValue->isNull() || type == pjValue->type();
}

// Returns whether the stored links can be changed without data loss: neither they nor their order has a wrong type.
bool is_link_field(const Json::Value& jNode)
{
    const Json::Value* pjLinkedGpo = find_member(jNode, "linked_gpo");
    const Json::Value* pjOrder = NULL == pjLinkedGpo ? NULL : find_member(*pjLinkedGpo, "order");
    return is_null_or(Json::objectValue, &jNode) && is_null_or(Json::objectValue, pjLinkedGpo) &&
           is_null_or(Json::arrayValue, pjOrder);
}

// Returns whether the entry links the policy. An entry without "id" counts as a link to policy 0 and gets a null "id",
// which is stored with the record.
bool is_entry_of(Json::Value& jEntry, int64_t gpoId)
{
    int64_t id = 0;
    return jEntry.isObject() && 0 == read_int64(jEntry["id"], &id) && id == gpoId;
}

void remove_link(Json::Value& jNode, int64_t gpoId)
{
    if (NULL == find_member(jNode, "linked_gpo") || NULL == find_member(jNode["linked_gpo"], "order")) {
        return;
    }
    Json::Value& jOrder = jNode["linked_gpo"]["order"];
    Json::Value jKept(Json::arrayValue);
    for (Json::Value& jEntry : jOrder) {
        if (!is_entry_of(jEntry, gpoId)) {
            jKept.append(jEntry);
        }
    }
    jOrder.swap(jKept);
}

void add_link(Json::Value& jNode, int64_t gpoId, const Json::Value& jGpoId)
{
    Json::Value& jLinkedGpo = jNode["linked_gpo"];
    if (jLinkedGpo.isNull()) {
        jLinkedGpo = Json::Value(Json::objectValue);
    }
    Json::Value& jOrder = jLinkedGpo["order"];
    if (jOrder.isNull()) {
        jOrder = Json::Value(Json::arrayValue);
    }
    for (Json::Value& jEntry : jOrder) {
        if (NULL != find_member(jEntry, "id") && is_entry_of(jEntry, gpoId)) {
            return;
        }
    }
    Json::Value jLink(Json::objectValue);
    jLink["id"] = jGpoId;
    jOrder.append(std::move(jLink));
}

// Loads the node into pNode, adds or removes the link, and stores the node.
template <typename Record>
int rewrite_links(const RecordCalls<Record>& calls, Record* pNode, int64_t nodeId, int64_t gpoId,
                  const Json::Value& jGpoId, bool isAdd)
{
    Json::Value jNode;
    Json::Value jSearchArray(Json::arrayValue);

    if (0 > calls.pGet(nodeId, pNode)) {
        return log_failed_call(calls.szGet, szSourceLib);
    }
    jSearchArray.append("linked_gpo");
    if (0 > calls.pStructToJson(pNode, jSearchArray, jNode)) {
        return log_failed_call(calls.szStructToJson, szSourceLib);
    }
    if (!is_link_field(jNode)) {
        return log_bad_parameter(szSourceLib);
    }
    if (isAdd) {
        add_link(jNode, gpoId, jGpoId);
    } else {
        remove_link(jNode, gpoId);
    }
    if (0 > calls.pJsonToStruct(jNode, pNode)) {
        return log_failed_call(calls.szJsonToStruct, szSourceLib);
    }
    if (0 > calls.pSet(pNode)) {
        return log_failed_call(calls.szSet, szSourceLib);
    }
    return 0;
}

template <typename Record>
int update_link(const RecordCalls<Record>& calls, const Json::Value& jData, bool isAdd)
{
    int64_t nodeId = 0;
    int64_t gpoId = 0;

    if (0 > read_id(jData, "node_id", &nodeId) || 0 > read_id(jData, "gpo_id", &gpoId)) {
        return log_bad_parameter(szSourceLib);
    }
    Record* pNode = NULL;
    const auto release = [&calls](Record** ppNode) { calls.pFree(*ppNode); };  // the record may be null
    const std::unique_ptr<Record*, decltype(release)> pRelease(&pNode, release);

    pNode = calls.pAlloc();
    if (NULL == pNode) {
        return log_failed_call(calls.szAlloc, szSourceLib);
    }
    return rewrite_links(calls, pNode, nodeId, gpoId, jData["gpo_id"], isAdd);
}

}  // namespace

int VELQZEMOuUpdateLinkGpo(Json::Value& jData, int isAdd)
{
    return update_link(ouCalls, jData, 0 != isAdd);
}

int VELQZEMKxUpdateLinkGpo(Json::Value& jData, int isAdd)
{
    return update_link(kxCalls, jData, 0 != isAdd);
}
