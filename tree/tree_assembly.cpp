// A child is hung in source order, so it may be hung before its parent is: it then travels with it. An element that has
// been hung stays in the source array with the marker, and nothing looks at it again: its current copy is found through
// the top-level node above it.
#include "tree/tree_assembly.h"

#include <vector>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "platform/velq_zem.h"
#include "tree/hung_marker.h"
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
    const bool isSameType = 0 == read_int(jLeft["node_type"], &leftType) &&
                            0 == read_int(jRight["node_type"], &rightType) && leftType == rightType;
    if (&jLeft == &jRight) {
        jLeft["id"];  // added where it is missing, as by every comparison
        return true;  // also when it cannot be read: a node must not be hung inside itself
    }
    return isSameType && 0 == read_int64(jLeft["id"], &leftId) && 0 == read_int64(jRight["id"], &rightId) &&
           leftId == rightId;
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
        if (is_same_node(jChild, jTop) || is_hung(jTop)) {
            continue;
        }
        Json::Value* pParent = FindJsonParent(jTop, jChild);
        if (NULL != pParent) {
            return pParent;
        }
    }
    return NULL;
}

void hang_by_search(Json::Value& jSrc, Json::Value& jDst)
{
    for (Json::Value& jChild : jSrc) {
        Json::Value* pParent = search_parent(jDst, jChild);
        if (NULL == pParent) {
            continue;
        }
        (*pParent)["children"].append(jChild);
        set_marker(jChild);
    }
}

void collect_roots(Json::Value& jDst, Json::Value& jOut)
{
    jOut = Json::Value(Json::arrayValue);
    for (Json::Value& jNode : jDst) {
        if (!is_hung(jNode)) {
            jOut.append(std::move(jNode));
        }
    }
    remove_top_markers(jOut);  // null ones
}

void append_orphans(Json::Value& jSrc, Json::Value& jDst)
{
    std::vector<Json::Value*> orphans;  // found first: both may be the same array
    for (Json::Value& jNode : jSrc) {
        if (!has_marker(jNode)) {
            orphans.push_back(&jNode);
        }
    }
    for (Json::Value* pjNode : orphans) {
        jDst.append(std::move(*pjNode));
    }
}

// The three nestings node by node, for nodes that the lookup does not take.
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

void read_links(Json::Value& jArray, std::vector<NodeLink> NodeLinks::*pKind, NodeLinks* pLinks)
{
    if (!jArray.isArray()) {
        return;
    }
    for (Json::Value& jNode : jArray) {
        read_node_link(jNode, pKind, pLinks);
    }
}

}  // namespace

int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData)
{
    NodeLinks links;
    read_links(jDataOu, &NodeLinks::groups, &links);
    read_links(jDataKx, &NodeLinks::servers, &links);
    read_links(jDataGpo, &NodeLinks::policies, &links);
    return BuildTreeJson(jDataOu, jDataKx, jDataGpo, links, jData);
}

int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, const NodeLinks& links,
                  Json::Value& jData)
{
    if (!jDataOu.isArray() || !jDataKx.isArray() || !jDataGpo.isArray() || !jData.isArray()) {
        return log_bad_parameter();
    }
    // Taken over, not copied: nobody looks at the flat arrays again.
    Json::Value jOu(std::move(jDataOu));
    Json::Value jKx(std::move(jDataKx));
    Json::Value jGpo(std::move(jDataGpo));

    return 0 == nest_by_lookup(links, jData) ? 0 : nest_by_search(jOu, jKx, jGpo, jData);
}

int ConvertTreeJsonToParent(Json::Value* pjSrc, Json::Value* pjDst, Json::Value* pjOut)
{
    if (NULL == pjSrc || !pjSrc->isArray() || NULL == pjDst || !pjDst->isArray()) {
        return log_bad_parameter();
    }
    hang_by_search(*pjSrc, *pjDst);
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
