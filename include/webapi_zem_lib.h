// Declares the functions that the module exports to the other modules of the package. They change the policy links of
// groups and servers.
//
// Any thread may call them, with JSON values that no other thread uses. They lock nothing: if two callers change the
// same node at the same time, the node store accepts one change and refuses the other.
#pragma once

#include <json/value.h>

#include "platform/velq_webapi.h"

#pragma GCC visibility push(default)

extern "C" {

// Copies "target_add" and "target_remove", if the request has them, into the policy's record jOut, and sets "gpo_id" of
// every entry that is an object to the record's "id"; if the record has none, both become null. Other entries, and
// values that are not arrays, are copied unchanged. If req is null, or jOut is neither an object nor null, the function
// writes a log line and leaves jOut unchanged.
void VELQZEMHttpReqToJsonForLinkedTarget(VELQ::APIRequest* req, Json::Value& jOut);

// Adds a policy to the end of the ordered links of a group (Ou) or server (Kx), or removes it from them.
// jData: {"node_id": the node's identifier, "gpo_id": the policy's identifier}, both signed 64-bit integers. The caller
// owns it.
// isAdd: non-zero adds the policy, or leaves it in its place if it is linked already; zero removes every link to it.
// Returns 0, or -1 after a log line; the stored node is then unchanged. errno after -1: as the failed store call set it
// (ENOENT no such node, EINVAL no such policy, EAGAIN the node was changed in the meantime, EACCES, EBUSY, EIO,
// ENOMEM); unchanged if jData is malformed; unspecified if the stored links are malformed.
int VELQZEMOuUpdateLinkGpo(Json::Value& jData, int isAdd);
int VELQZEMKxUpdateLinkGpo(Json::Value& jData, int isAdd);

}  // extern "C"

#pragma GCC visibility pop
