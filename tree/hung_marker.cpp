#include "tree/hung_marker.h"

#include "frame/json_read.h"

bool has_marker(const Json::Value& jNode)
{
    return NULL != find_member(jNode, szHungMarker);
}

bool is_hung(const Json::Value& jNode)
{
    const Json::Value* pjMarker = find_member(jNode, szHungMarker);
    return NULL != pjMarker && !pjMarker->isNull();
}

void set_marker(Json::Value& jNode)
{
    jNode[szHungMarker] = 1;
}

void remove_marker(Json::Value& jNode)
{
    if (jNode.isObject()) {
        jNode.removeMember(szHungMarker);
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
