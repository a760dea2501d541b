// Nests flat arrays of nodes, each of which names its parent, into one tree.
//
// A node is identified by "node_type" and "id". It names its parent by "parent_type" (absent or null: a group) and
// "parent_id". Elements of a source array that have been attached to a parent carry a marker (attached_marker.h), which
// never reaches the tree. All functions work in place on values of the calling thread.
#pragma once

#include <json/value.h>

#include "tree/parent_index.h"

// Nests groups, servers and policies into the array jData and gives every node its display members. The nodes are
// moved, so the contents of the source arrays must not be used afterwards. Returns 0, or -1 after a log line if an
// argument is not an array; jData is then unchanged.
int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData);

// Does the same with a table of all elements of the three arrays, in their order. Since the table was filled, no
// element may have been copied, replaced or removed, nor any member changed that nesting reads or sets.
int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, const NodeTable& table,
                  Json::Value& jData);

// Appends each node of the source array to the "children" of its parent in the destination array, in source order. Both
// may be the same array, whose nodes are then nested among themselves.
// If pjOut is not null, it receives the top-level nodes of the destination that have no parent, in order.
// If pjOut is null, source nodes without a parent are appended to the destination, which must be another array.
// Nodes may be moved instead of copied: the source, and with pjOut the destination, may then hold useless elements.
// Returns 0, or -1 after a log line, with nothing changed, if source or destination is null or not an array.
int ConvertTreeJsonToParent(Json::Value* pjSrc, Json::Value* pjDst, Json::Value* pjOut);

// Searches the descendants of jParent, then jParent itself, for the parent that jChild names. Returns that node, which
// belongs to jParent's tree, or null. A node whose "children" is neither null nor an array is never a parent.
Json::Value* FindJsonParent(Json::Value& jParent, Json::Value& jChild);

// Returns whether jParent's "node_type" is a signed integer and the kind that jChild names for its parent.
bool IsJsonParentTypeMatch(const Json::Value& jParent, const Json::Value& jChild);
