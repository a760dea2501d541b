// The marker of an element of a source array whose node has been hung under a parent: its current copy is in the tree,
// and nothing looks at the element again. All are for the calling thread's values; errno is left as it is.
#pragma once

#include <json/value.h>

constexpr char szHungMarker[] = "find_parent";  // the member that is the marker

// Whether the node carries the marker, a null one included; and whether it counts as hung, which a null one does not.
bool has_marker(const Json::Value& jNode);
bool is_hung(const Json::Value& jNode);

// Sets the marker of an object.
void set_marker(Json::Value& jNode);

// Takes the marker out of the node; out of the node and all below it. One that is no object has none.
void remove_marker(Json::Value& jNode);
void remove_markers_below(Json::Value& jNode);
