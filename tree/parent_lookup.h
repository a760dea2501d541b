// The nesting's search for parents as a lookup by kind and identifier: linear time, the same answer.
#pragma once

#include <json/value.h>

// Hangs the nodes of the array jSrc under their parents in the array jDst, as the search node by node would: same
// parents, same order, each hung element of jSrc left with the marker only, its node moved.
// Returns 0, or -1 with nothing hung where the search leaves traces of its own: errno is EACCES, so that it logs
// each kind that does not match; an element is no object, or lacks a member that the search would add; a number cannot
// be read; two nodes have the same identity; a node arrives with a marker, or a source node with children.
int hang_by_lookup(Json::Value& jSrc, Json::Value& jDst);
