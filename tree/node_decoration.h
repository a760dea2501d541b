// What tree nodes carry beyond their records: their delegated administrators and the details of their linked policies.
#pragma once

#include <json/value.h>

// Decorates every node of jArray in order, in place, and marks in jGpoArray, the tree's policies, those that are
// linked. Returns 0, or -1 after a log line: jArray is not an array, or a node failed; the nodes before it are then
// decorated and those after it untouched. errno is the failed store call's.
int add_info_to_node(Json::Value& jArray, Json::Value& jGpoArray);

// Sets the node's "delegate" to the array of its delegated administrators; one without any that can be shown keeps
// what it has. A delegate whose extra information is not a JSON object with all its three names is left out.
// Returns 0, or -1 after a log line, "delegate" unchanged: the node is not an object, its "id" or "node_type" is no
// number, or the store failed (errno is the store's).
int get_delegate_by_node(Json::Value& node);
