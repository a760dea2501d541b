#include "tree/linked_policies.h"

#include <cstring>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "platform/velq_zem.h"

namespace {

// The node's link entries; null when it has none. Members that are looked up and missing are added as null.
Json::Value* find_links(Json::Value& node)
{
    Json::Value& jLinkedGpo = node["linked_gpo"];
    if (jLinkedGpo.empty() || !jLinkedGpo.isObject()) {
        return NULL;
    }
    Json::Value& jOrder = jLinkedGpo["order"];
    return jOrder.empty() || !jOrder.isArray() ? NULL : &jOrder;
}

PolicyIndex index_policies(Json::Value& jGpoArray)
{
    PolicyIndex index;
    if (!jGpoArray.isArray()) {
        return index;
    }
    index.reserve(jGpoArray.size());
    for (Json::Value& jGpo : jGpoArray) {
        int64_t id = 0;
        if (jGpo.isObject() && 0 == read_int64(jGpo["id"], &id)) {
            index.emplace(id, &jGpo);
        }
    }
    return index;
}

void mark_linked(int64_t gpoId, Json::Value& jGpoArray, std::optional<PolicyIndex>& index)
{
    if (!index) {
        index = index_policies(jGpoArray);
    }
    const auto range = index->equal_range(gpoId);
    for (auto it = range.first; it != range.second; ++it) {
        (*it->second)["linked"] = true;
    }
}

// Copies name and description of the policy into the entry and takes "id" out; an entry whose policy cannot be read
// keeps what it has got so far.
void describe_link(Json::Value& jLink, int64_t gpoId, _tag_velq_zem_gpo_* pGpo)
{
    char szBuf[4096];

    if (0 > VELQZEMGpoGet(gpoId, pGpo)) {
        log_access_denied("0 >VELQZEMGpoGet(gpoId, pGpo)");
        return;
    }
    memset(szBuf, 0, sizeof(szBuf));
    if (0 > VELQZEMGpoItemGetName(szBuf, sizeof(szBuf), pGpo)) {
        log_access_denied("0 > VELQZEMGpoItemGetName(_SAS(szBuf), pGpo)");
        return;
    }
    jLink["gpo_name"] = szBuf;

    memset(szBuf, 0, sizeof(szBuf));
    if (0 > VELQZEMGpoItemGetDescription(szBuf, sizeof(szBuf), pGpo)) {
        log_access_denied("0 > VELQZEMGpoItemGetDescription(_SAS(szBuf), pGpo)");
        return;
    }
    jLink["gpo_desc"] = szBuf;
    jLink.removeMember("id");
}

void resolve_link(Json::Value& jLink, Json::Value& jGpoArray, std::optional<PolicyIndex>& index,
                  _tag_velq_zem_gpo_* pGpo)
{
    int64_t gpoId = 0;
    if (!jLink.isObject() || jLink["id"].isNull() || 0 > read_int64(jLink["id"], &gpoId)) {
        log_access_denied("(*pjGpoLink)[i][\"id\"].isNull()");
        return;
    }
    jLink["gpo_id"] = Json::Value(gpoId);
    mark_linked(gpoId, jGpoArray, index);
    describe_link(jLink, gpoId, pGpo);
}

}  // namespace

int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray)
{
    std::optional<PolicyIndex> index;
    return get_gpo_info_by_node(node, jGpoArray, index);
}

int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray, std::optional<PolicyIndex>& index)
{
    if (!node.isObject()) {
        log_bad_parameter();
        return -1;
    }
    Json::Value* pjLinks = find_links(node);
    if (NULL == pjLinks) {
        return 0;
    }
    for (Json::Value& jLink : *pjLinks) {
        _tag_velq_zem_gpo_* pGpo = VELQZEMGpoAlloc();
        if (NULL == pGpo) {
            log_failed_call("NULL == (pGpo = VELQZEMGpoAlloc())");
            return -1;
        }
        resolve_link(jLink, jGpoArray, index, pGpo);
        VELQZEMGpoFree(pGpo);
    }
    return 0;
}
