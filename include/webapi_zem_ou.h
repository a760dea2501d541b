// What the module offers to the web API server: its method table, its handlers, and the conversion of a group request.
//
// Threads: everything here may be used by any number of threads at once; the module keeps no state between calls.
// A handler never throws for anything that a request or a stored record carries.
#pragma once

#include <json/value.h>

#include "platform/velq_webapi.h"

#pragma GCC visibility push(default)

extern "C" {

// The module's methods, one row each, then a row of all zeros. Filled in by the loader, constant from then on.
extern VELQ::APIMethod gTable[];

// The first row of gTable, the same on every call; the table stays the module's.
VELQ::APIMethod* GetAPITable(void);

// Handlers. They answer through resp only: success with data, or an error code with null data. The caller keeps req
// and resp. When one of them is null, a log line says so and nothing else happens. Common error codes: 105 the login
// uid cannot be determined; 117 any other failure, mostly with a line in the log; 414 the caller may not manage the
// group. Several items are handled in order; the first failure ends the request, and earlier items stay done.

// "VELQ.ZEM.KXGroup" 1 "create": makes groups. Parameters: "multiple_data", an array of group records; or else one
// record's members, "id", "name" and "parent_id" required. Data: {"ids": [id, ...]}, for a single group {"ids": id}.
void create_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.KXGroup" 1 "set": changes groups. Parameters: "multiple_data", an array of group records, each with "id";
// or else one record's members with "node_id". Members that are absent stay as stored. Data: null.
// 101: "multiple_data" is not an array, or an identifier is not a signed 64-bit integer.
void set_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.KXGroup" 1 "delete": deletes groups. Parameter "node_id": an identifier or an array of them. Data: null.
// 101: "node_id" is missing, names the root group, or is not a signed 64-bit integer.
void delete_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.Tree" 1 "get": the whole tree that the caller may see. No parameters. Data: the array of top-level nodes,
// each with its subtree in "children".
void list_tree_by_uid_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// One level of groups; not in gTable, called through its name. Unlike the handlers above it takes the identity from the
// parameters and demands that neither pointer is null. Parameters, each optional and handed to the store as text:
// "offset", "limit", "sort_by", "sort_direction", "ugid", "user_type". Data: {"objects": [...], "offset": as sent,
// "total": 0, "count": number of objects}. 500: any failure.
void list_one_level_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// One group's request parameters as a group record, values as they were sent. isCreate: 1 demands "id", "name" and
// "parent_id"; any other value demands nothing. Returns the record, which the caller owns, or a null value when a
// demanded parameter is missing or req is null; the latter also sets the last-error record to 0x0D00.
Json::Value VELQZEMOuHttpReqToJson(VELQ::APIRequest* req, int isCreate);

}  // extern "C"

#pragma GCC visibility pop
