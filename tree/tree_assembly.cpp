// Nests nodes by searching the tree for the parent of each node.
//
// Nodes are attached in source order. A node that is attached before its parent moves along with its parent later. The
// source array keeps an outdated copy of each attached node, marked so that the search skips it; the search reaches the
// node itself through the top-level node above it.
#include "tree/tree_assembly.h"

#include <vector>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "platform/velq_zem.h"
#include "tree/attached_marker.h"
#include "tree/node_postprocess.h"

namespace {

bool is_same_node(Json::Value& jLeft, Json::Value& jRight)
{
    if (!jLeft.isObject() || !jRight.isObject()) {
        return &jLeft == &jRight;
    }
    int leftType = 0;
    int rightType = 0;
    int64_t leftId = 0;
    int64_t rightId = 0;
    // The lookups add missing members as null; the answer contains a "node_type" that was added so.
    const bool isEqual = 0 == read_int(jLeft["node_type"], &leftType) &&
                         0 == read_int(jRight["node_type"], &rightType) && leftType == rightType &&
                         0 == read_int64(jLeft["id"], &leftId) && 0 == read_int64(jRight["id"], &rightId) &&
                         leftId == rightId;
    // A node whose identity cannot be read is still itself and must not be attached to itself.
    return isEqual || &jLeft == &jRight;
}

void remove_top_markers(Json::Value& jNodes)
{
    for (Json::Value& jNode : jNodes) {
        remove_marker(jNode);
    }
}

Json::Value* search_parent(Json::Value& jDst, Json::Value& jChild)
{
    for (Json::Value& jTop : jDst) {
        if (is_same_node(jChild, jTop) || is_attached(jTop)) {
            continue;
        }
        Json::Value* pParent = FindJsonParent(jTop, jChild);
        if (NULL != pParent) {
            return pParent;
        }
    }
    return NULL;
}

void attach_by_search(Json::Value& jSrc, Json::Value& jDst)
{
    for (Json::Value& jChild : jSrc) {
        Json::Value* pParent = search_parent(jDst, jChild);
        if (NULL == pParent) {
            continue;
        }
        (*pParent)["children"].append(jChild);
        mark_attached(jChild);
    }
}

void collect_roots(Json::Value& jDst, Json::Value& jOut)
{
    jOut = Json::Value(Json::arrayValue);
    for (Json::Value& jNode : jDst) {
        if (!is_attached(jNode)) {
            jOut.append(std::move(jNode));
        }
    }
    remove_top_markers(jOut);  // a null marker does not count as attached
}

void append_orphans(Json::Value& jSrc, Json::Value& jDst)
{
    std::vector<Json::Value*> orphans;  // collected before appending, because both may be the same array
    for (Json::Value& jNode : jSrc) {
        if (!has_marker(jNode)) {
            orphans.push_back(&jNode);
        }
    }
    for (Json::Value* pjNode : orphans) {
        jDst.append(std::move(*pjNode));
    }
}

// Nests the groups among themselves, then servers and policies into their tree, by search.
int nest_by_search(Json::Value& jOu, Json::Value& jKx, Json::Value& jGpo, Json::Value& jData)
{
    if (0 > ConvertTreeJsonToParent(&jOu, &jOu, &jData)) {
        return log_failed_call("0 >ConvertTreeJsonToParent(&jOu, &jOu, &jData)");
    }
    if (0 > ConvertTreeJsonToParent(&jKx, &jData, NULL)) {
        return log_failed_call("0 >ConvertTreeJsonToParent(&jKx, &jData, NULL)");
    }
    if (0 > ConvertTreeJsonToParent(&jGpo, &jData, NULL)) {
        return log_failed_call("0 >ConvertTreeJsonToParent(&jGpo, &jData, NULL)");
    }
    for (Json::Value& jNode : jData) {
        if (0 > postHandleNode(jNode)) {
            log_access_denied("0 > postHandleNode(jData[i])");
        }
    }
    return 0;
}

void add_node_entries(Json::Value& jArray, std::vector<NodeEntry> NodeTable::*pKind, NodeTable* pTable)
{
    if (!jArray.isArray()) {
        return;
    }
    for (Json::Value& jNode : jArray) {
        add_node_entry(jNode, pKind, pTable);
    }
}

}  // namespace

int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData)
{
    NodeTable table;
    add_node_entries(jDataOu, &NodeTable::groups, &table);
    add_node_entries(jDataKx, &NodeTable::servers, &table);
    add_node_entries(jDataGpo, &NodeTable::policies, &table);
    return BuildTreeJson(jDataOu, jDataKx, jDataGpo, table, jData);
}

int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, const NodeTable& table,
                  Json::Value& jData)
{
    if (!jDataOu.isArray() || !jDataKx.isArray() || !jDataGpo.isArray() || !jData.isArray()) {
        return log_bad_parameter();
    }
    // Moved, not copied: the flat arrays are not used again.
    Json::Value jOu(std::move(jDataOu));
    Json::Value jKx(std::move(jDataKx));
    Json::Value jGpo(std::move(jDataGpo));

    return 0 == nest_by_index(table, jData) ? 0 : nest_by_search(jOu, jKx, jGpo, jData);
}

int ConvertTreeJsonToParent(Json::Value* pjSrc, Json::Value* pjDst, Json::Value* pjOut)
{
    if (NULL == pjSrc || !pjSrc->isArray() || NULL == pjDst || !pjDst->isArray()) {
        return log_bad_parameter();
    }
    attach_by_search(*pjSrc, *pjDst);
    if (NULL != pjOut) {
        collect_roots(*pjDst, *pjOut);
        return 0;
    }
    append_orphans(*pjSrc, *pjDst);
    remove_top_markers(*pjDst);
    return 0;
}

Json::Value* FindJsonParent(Json::Value& jParent, Json::Value& jChild)
{
    if (!jParent.isObject() || !jChild.isObject()) {
        log_bad_parameter();
        return NULL;
    }
    Json::Value& jChildren = jParent["children"];
    if (jChildren.isArray()) {
        for (Json::Value& jNext : jChildren) {
            Json::Value* pFound = FindJsonParent(jNext, jChild);
            if (NULL != pFound) {
                return pFound;
            }
        }
    }
    if (!IsJsonParentTypeMatch(jParent, jChild)) {
        log_access_denied("!IsJsonParentTypeMatch(jParent, jChild)");
        return NULL;
    }
    int64_t id = 0;
    int64_t parentId = 0;
    if (0 > read_int64(jParent["id"], &id) || 0 > read_int64(jChild["parent_id"], &parentId) || id != parentId) {
        return NULL;
    }
    return jChildren.isNull() || jChildren.isArray() ? &jParent : NULL;
}

bool IsJsonParentTypeMatch(const Json::Value& jParent, const Json::Value& jChild)
{
    if (!jParent.isObject() || !jChild.isObject()) {
        log_bad_parameter();
        return false;
    }
    int parentType = VELQ_ZEM_TYPE_OU;
    const Json::Value& jParentType = jChild["parent_type"];
    if (!jParentType.isNull() && 0 > read_int(jParentType, &parentType)) {
        return false;
    }
    return jParent["node_type"] == Json::Value(parentType);
}
