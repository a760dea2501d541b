// The handler of the module webapi_zem_kx.so, which changes servers.
//
// The module keeps no state, so any number of threads may call the handler at once.
#pragma once

#include "platform/velq_webapi.h"

// "VELQ.ZEM.KX" 1 "set": changes servers. Parameters: "multiple_data", an array of server records, each with "id" and
// optionally "revision"; or "node_id", an identifier or an array of them, with the members of a record, which each of
// these servers gets. Members: "name", "address", "parent_id", "linked_gpo" (the whole ordered list; outside
// "multiple_data" also the array alone). Members that are missing keep their stored values; others are ignored. Data:
// null. The servers are changed in order; the first failure ends the request, and earlier changes stay.
// Error codes: 101 "multiple_data" is not an array, "node_id" is missing, or an identifier is not a signed 64-bit
// integer. 105 the login uid cannot be determined. 414 the caller may not manage the server's group, also when the
// server does not exist, unless the caller manages the root group. 117 any other failure, with a log line.
// The caller owns req and resp. If one of them is null, the handler writes a log line and does nothing else.
void set_servers_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);
