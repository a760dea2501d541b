// The shape in which the console's tree view receives a node.
#pragma once

#include <json/value.h>

// Takes "id" out of the node and of all its descendants, in place, and sets on each "expanded": whether it has
// children; on a leaf also "loaded": true, and "children": null where it is absent. A "children" that is neither null
// nor an array stays as it is, on a leaf. Returns 0, or -1 after a log line, the node unchanged: it is not an object.
// A descendant that is no object is left as it is and changes no result.
int postHandleNode(Json::Value& node);
