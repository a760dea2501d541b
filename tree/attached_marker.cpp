// Reads, sets and removes the marker of attached nodes.
#include "tree/attached_marker.h"

#include "frame/json_read.h"

bool has_marker(const Json::Value& jNode)
{
    return NULL != find_member(jNode, szAttachedMarker);
}

bool is_attached(const Json::Value& jNode)
{
    const Json::Value* pjMarker = find_member(jNode, szAttachedMarker);
    return NULL != pjMarker && !pjMarker->isNull();
}

void mark_attached(Json::Value& jNode)
{
    jNode[szAttachedMarker] = 1;
}

void remove_marker(Json::Value& jNode)
{
    if (jNode.isObject()) {
        jNode.removeMember(szAttachedMarker);
    }
}

void remove_markers_below(Json::Value& jNode)
{
    remove_marker(jNode);
    const Json::Value* pjChildren = find_member(jNode, "children");
    if (NULL == pjChildren || !pjChildren->isArray()) {
        return;
    }
    for (Json::Value& jChild : jNode["children"]) {
        remove_markers_below(jChild);
    }
}
