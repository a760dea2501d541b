// Memory of nodes, asked for before it is needed: a large tree does not fit into the processor's cache.
#pragma once

#include <json/value.h>

// Asks the processor for the members of an object, which mostly lie side by side as they were made one after the other.
// Has no effect but on speed; any other value is allowed. What lies there is not read.
void prefetch_members(const Json::Value& jNode);

// The same where a member of the object is known.
void prefetch_around(const Json::Value* pjMember);
