// The handler of the module webapi_zem_gpo.so, which changes policy links through exported functions of
// webapi_zem_ou.so.
//
// The module keeps no state, so any number of threads may call the handler at once.
#pragma once

#include "platform/velq_webapi.h"

// "VELQ.ZEM.GPO" 1 "link": adds links to a policy to groups and servers, and removes such links. Parameters: "id", the
// policy's identifier; "target_add" and "target_remove", arrays of {"node_type", "node_id"}, each the kind and
// identifier of a group or server. One of the arrays may be absent or null. Data: null.
// First all parameters are checked, then the caller's permission on every target (for a server: on its group). Then the
// links are added, then removed, in the order given. The first failure ends the request, and earlier changes stay.
// Adding a link that exists, or removing one that does not, is not a failure.
// Error codes, each with a log line: 101 a parameter is missing or malformed. 105 the login uid cannot be determined.
// 414 the caller may not manage a target, or may not see the policy; also when a server does not exist, unless the
// caller manages the root group. 117 any other failure.
// The caller owns req and resp. If one of them is null, the handler writes a log line and does nothing else.
void link_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);
