// Converts records from and to JSON objects by their kind's table of fields. Any thread may call these functions.
#pragma once

#include <json/value.h>

namespace store {

// Sets the record's fields from the members of the object, all but those that the store manages. A null member counts
// as absent, but clears a JSON text. Throws InvalidInput with the member at fault; the members before it may then be
// set. For groups, servers, policies and accounts.
template <typename R>
void assignMembers(const Json::Value& jRecord, R& record);

// Returns the record as an object: every field but a JSON text that is empty, the identifier also as "node_id", and the
// kind's "node_type" and "parent_type". jNames: an array of the names of the members to return; null for all. Throws
// Refusal EINVAL for a text that is not JSON. For groups, servers and policies.
template <typename R>
Json::Value toJson(const R& record, const Json::Value& jNames);

}  // namespace store
