// The nesting of groups, servers and policies with one index of all nodes: linear time, the answer of the search node
// by node.
#pragma once

#include <json/value.h>

// Nests three arrays into jData, which is replaced, and gives every node its display members: same parents, same order
// as three nestings by search, each node met once. The nodes are moved; the three arrays keep nothing of use.
// Returns 0, or -1 with nothing changed where the search leaves traces of its own: errno is EACCES, so that it logs
// each kind that does not match; an element is no object, or lacks a member that the search would add; a number cannot
// be read; two nodes have the same identity; a node arrives with a marker or with children.
int nest_by_lookup(Json::Value& jOu, Json::Value& jKx, Json::Value& jGpo, Json::Value& jData);
