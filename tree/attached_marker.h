// Reads and sets the marker of attached nodes. Nesting marks an element of a source array once its node is attached to
// a parent.
//
// The tree then holds the node, and the marked element is an outdated copy that no later step may use. The functions
// work on values of the calling thread and leave errno unchanged.
#pragma once

#include <json/value.h>

constexpr char szAttachedMarker[] = "find_parent";  // the name of the member that serves as the marker

// Returns whether the node has the marker at all, even a null one.
bool has_marker(const Json::Value& jNode);

// Returns whether the node counts as attached; with a null marker it does not.
bool is_attached(const Json::Value& jNode);

// Sets the marker of a node, which must be an object.
void mark_attached(Json::Value& jNode);

// Removes the marker of the node; a value that is not an object has none.
void remove_marker(Json::Value& jNode);

// Removes the markers of the node and of everything in its "children", at all depths.
void remove_markers_below(Json::Value& jNode);
