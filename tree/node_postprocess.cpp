#include "tree/node_postprocess.h"

#include "frame/failure_log.h"

namespace {

// Keys of a static string are not copied for every node.
const Json::StaticString szChildren("children");
const Json::StaticString szExpanded("expanded");
const Json::StaticString szLoaded("loaded");

}  // namespace

int postHandleNode(Json::Value& node)
{
    if (!node.isObject()) {
        return log_bad_parameter();
    }
    Json::Value* pjChildren = shape_node(node);
    if (NULL == pjChildren) {
        return 0;
    }
    for (Json::Value& jChild : *pjChildren) {
        if (0 != postHandleNode(jChild)) {
            log_access_denied("postHandleNode((*pjArray)[i])");
        }
    }
    return 0;
}

Json::Value* shape_node(Json::Value& node)
{
    node.removeMember("id");
    Json::Value& jChildren = node[szChildren];
    const bool isExpanded = jChildren.isArray();
    node[szExpanded] = isExpanded;
    if (!isExpanded) {
        node[szLoaded] = true;
    }
    return isExpanded ? &jChildren : NULL;
}
