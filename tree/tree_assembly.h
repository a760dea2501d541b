// Nesting: flat arrays of nodes, each with a link to its parent by kind and identifier, become one tree.
//
// A node is identified by "node_type" and "id"; its parent link is "parent_type" (absent or null: a group) and
// "parent_id". Elements of a source array that have been hung under a parent carry a marker (hung_marker.h), which
// never reaches the tree. All work in place on values of the calling thread.
#pragma once

#include <json/value.h>

#include "tree/parent_lookup.h"

// Nests groups, servers and policies into jData, an array, and gives every node its display members. The three source
// arrays keep nothing of use. Returns 0, or -1 after a log line: an argument is not an array; jData then is as it was.
int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData);

// The same for arrays whose nodes have been read before, all of them in the order of the arrays, and not been copied,
// replaced or taken out since; what nesting reads and sets of a node is as it was.
int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, const NodeLinks& links,
                  Json::Value& jData);

// Hangs each node of the source array under its parent in the destination array, at the end of the parent's
// "children", in source order. Both may be the same array, whose nodes are then nested among themselves.
// pjOut not null: it receives, in order, the top-level nodes of the destination that were not hung.
// pjOut null: source nodes that found no parent are appended to the destination, which is then another array.
// Nodes may be moved instead of copied: the source, and with pjOut the destination, keeps elements of no further use.
// Returns 0, or -1 after a log line, nothing changed: source or destination is null or not an array.
int ConvertTreeJsonToParent(Json::Value* pjSrc, Json::Value* pjDst, Json::Value* pjOut);

// Searches jParent and its descendants, descendants first, for the parent that jChild names. Returns the node, which
// belongs to jParent's tree, or null. A node whose "children" is neither null nor an array is nobody's parent.
Json::Value* FindJsonParent(Json::Value& jParent, Json::Value& jChild);

// Whether jParent's kind, a signed integer, is the one that jChild names for its parent.
bool IsJsonParentTypeMatch(const Json::Value& jParent, const Json::Value& jChild);
