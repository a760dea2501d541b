// The policies that a node links: their names and descriptions for display, and a mark on each policy that is linked.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>

#include <json/value.h>

// The elements of a policy array that were not marked through this index yet, by identifier; they belong to the array,
// which must not grow or shrink meanwhile.
typedef std::unordered_multimap<int64_t, Json::Value*> PolicyIndex;

// Fills in the links of one node, in place: each entry of "linked_gpo"."order" gets "gpo_id", "gpo_name" and
// "gpo_desc" for its "id", as far as the store knows the policy, and every element of jGpoArray with that identifier
// gets "linked": true. An entry whose "id" is null or unreadable is not resolved. Members that are looked up and
// missing are added as null: "linked_gpo", its "order", an entry's "id". Returns 0, or -1 after a log line: the node is
// not an object, or no policy record could be allocated (errno is the store's); entries and marks made until then stay.
int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray);

// The same for many nodes over one policy array: index starts empty and is filled when the first link asks for it.
int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray, std::optional<PolicyIndex>& index);
