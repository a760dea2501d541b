// Adds to tree nodes the data that their records lack: delegated administrators and details of linked policies.
#pragma once

#include <json/value.h>

// Completes every node of jArray in order, in place, and marks the policies in jGpoArray that they link. Returns 0, or
// -1 after a log line: jArray is not an array, or a node failed. The nodes before a failed one are then complete, those
// after it unchanged, and errno is as the failed store call set it.
int add_info_to_node(Json::Value& jArray, Json::Value& jGpoArray);

// Sets the node's "delegate" to the array of its delegated administrators. A delegate is left out unless its extra
// information is a JSON object with "userNameCache", "domainName" and "domainType"; if none remains, "delegate" is not
// changed. Returns 0. Returns -1 after a log line, with "delegate" unchanged, if the node is not an object, its "id" or
// "node_type" is not a number, or the store fails (errno is then as the store set it).
int get_delegate_by_node(Json::Value& node);
