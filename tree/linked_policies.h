// Adds the names and descriptions of linked policies to nodes, and marks the policies that are linked.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include <json/value.h>

// The elements of a policy array that have not been marked as linked yet, by identifier. They belong to the array,
// which must not grow or shrink while the index is used.
typedef std::unordered_multimap<int64_t, Json::Value*> PolicyIndex;

// Completes the links of one node, in place: each entry of "linked_gpo"."order" gets "gpo_id", "gpo_name" and
// "gpo_desc" for its "id", as far as the store knows the policy; once it has all three, its "id" is removed. Every
// element of jGpoArray with that identifier gets "linked": true. An entry whose "id" is null or unreadable is skipped.
// The members "linked_gpo", its "order" and an entry's "id" are added as null where they are missing.
// Returns 0, or -1 after a log line if the node is not an object or no policy record could be allocated (errno is then
// as the store set it); links and policies that were completed or marked until then stay so.
int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray);

// Does the same for one of many nodes that share a policy array. The caller passes the same index each time, empty at
// first; it is filled when the first link needs it.
int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray, std::optional<PolicyIndex>& index);
