// Gives nodes the members that the console's tree view needs.
#pragma once

#include <json/value.h>

// Changes the node and all its descendants in place: removes "id" and sets "expanded" to whether "children" is an
// array. Where it is not, the node is a leaf and also gets "loaded": true, and "children": null if that is absent.
// Returns 0, or -1 after a log line if the node is not an object; it is then unchanged. A descendant that is not an
// object stays as it is and does not change the result.
int postHandleNode(Json::Value& node);
