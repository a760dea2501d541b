// Loads nodes into the processor's cache before they are needed; a large tree does not fit into it.
//
// The stand-in has a function of its own for this, because neither it nor the module may use the other's code.
#pragma once

#include <json/value.h>

// Prefetches the members of an object, most of which lie side by side because they were allocated one after the other.
// Any other value is allowed. The only effect is on speed.
void prefetch_members(const Json::Value& jNode);

// Does the same for the object that has *pjMember as a member.
void prefetch_around(const Json::Value* pjMember);
