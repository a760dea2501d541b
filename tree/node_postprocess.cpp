// Sets the display members of a node and its descendants.
#include "tree/node_postprocess.h"

#include "frame/failure_log.h"

int postHandleNode(Json::Value& node)
{
    if (!node.isObject()) {
        return log_bad_parameter();
    }
    node.removeMember("id");

    Json::Value& jChildren = node["children"];
    node["expanded"] = jChildren.isArray();
    if (!jChildren.isArray()) {
        node["loaded"] = true;
        return 0;
    }
    for (Json::Value& jChild : jChildren) {
        if (0 != postHandleNode(jChild)) {
            log_access_denied("postHandleNode((*pjArray)[i])");
        }
    }
    return 0;
}
