// The handler of the module webapi_zem_gpo.so, which maintains policy links through the functions that webapi_zem_ou.so
// exports for it. The module keeps no state; any number of threads may call the handler at once.
#pragma once

#include "platform/velq_webapi.h"

// "VELQ.ZEM.GPO" 1 "link": links a policy to groups and servers, and takes links away. Parameters: "id", the policy's
// identifier; "target_add" and "target_remove", at least one of them, arrays of {"node_type", "node_id"} with the kind
// of a group or of a server; null counts as absent. Data: null.
// The form of everything is checked first, then the caller's right on every target, a server's being that on its group;
// then the additions are made, then the removals, each in the order given. The first failure ends the request; what was
// done before it stays done. A policy that is linked already, or that is not linked, is no failure.
// 101: a parameter is missing or malformed. 105: the login uid cannot be determined. 414: the caller may not manage a
// target, or the store refuses it a policy that it does not see; a server that is not there is refused like another's,
// but to who manages the root group. 117: any other failure. Each leaves a line in the log.
// The caller keeps req and resp. When one of them is null, a log line says so and nothing else happens.
void link_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);
