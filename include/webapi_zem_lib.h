// What the module offers to the other modules of the package: the policy links of groups and servers.
//
// Threads: any thread may call these, each with JSON values of its own. Nothing is locked here: when two callers change
// the same node at once, the node store accepts one and refuses the other.
#pragma once

#include <json/value.h>

#include "platform/velq_webapi.h"

#pragma GCC visibility push(default)

extern "C" {

// Copies the request's "target_add" and "target_remove", as far as it carries them, into the policy's record jOut and
// gives every entry of them that is an object the record's "id" as "gpo_id". Other entries and values that are not
// arrays are copied as they are. A null req, or a jOut that is neither an object nor null, leaves a log line and jOut
// unchanged. A record without "id" stamps null, and gains a null "id".
void VELQZEMHttpReqToJsonForLinkedTarget(VELQ::APIRequest* req, Json::Value& jOut);

// Adds a policy at the end of the ordered links of a group (Ou) or a server (Kx), or removes it there.
// jData: {"node_id": the node's identifier, "gpo_id": the policy's}, both signed 64-bit integers; the caller keeps it.
// isAdd: non-zero adds, a policy that is linked already stays where it is; zero removes every link to the policy.
// The node is stored also when its links did not change.
// Returns 0, or -1 after a log line, the stored node then unchanged. errno: the failed store call's (ENOENT no such
// node, EINVAL no such policy, EAGAIN the node was changed meanwhile, EACCES, EBUSY, EIO, ENOMEM); as it was on entry
// when jData is malformed; of no meaning when the stored links are.
int VELQZEMOuUpdateLinkGpo(Json::Value& jData, int isAdd);
int VELQZEMKxUpdateLinkGpo(Json::Value& jData, int isAdd);

}  // extern "C"

#pragma GCC visibility pop
