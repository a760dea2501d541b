// Declares the module's interface to the web API server: the method table, the handlers, and the conversion of a group
// request.
//
// Any number of threads may use it at once; the module keeps no state between calls. No content of a request or of a
// stored record makes a handler throw.
#pragma once

#include <json/value.h>

#include "platform/velq_webapi.h"

#pragma GCC visibility push(default)

extern "C" {

// The module's methods, one per row, followed by a row of all zeros. Constant once the module is loaded.
extern VELQ::APIMethod gTable[];

// Returns gTable, which belongs to the module.
VELQ::APIMethod* GetAPITable(void);

// The handlers put their result into resp: success with data, or an error code with null data. The caller owns req and
// resp. If one of them is null, the handler writes a log line and does nothing else. Error codes of all handlers: 105
// the login uid cannot be determined; 414 the caller may not manage the group; 117 any other failure, in most cases
// with a log line. Several items of a request are handled in order; the first failure ends the request, and the changes
// of earlier items stay.

// "VELQ.ZEM.KXGroup" 1 "create": creates groups. Parameters: "multiple_data", an array of group records; or the members
// of a single record, of which "id", "name" and "parent_id" are required. Data: {"ids": [id, ...]}, or {"ids": id} for
// a single record.
void create_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.KXGroup" 1 "set": changes groups. Parameters: "multiple_data", an array of group records, each with "id";
// or the members of a single record with "node_id". Members that are missing keep their stored values. Data: null.
// 101: "multiple_data" is not an array, or an identifier is not a signed 64-bit integer.
void set_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.KXGroup" 1 "delete": deletes groups. Parameter "node_id": an identifier or an array of them. Data: null.
// 101: "node_id" is missing, names the root group, or is not a signed 64-bit integer.
void delete_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// "VELQ.ZEM.Tree" 1 "get": returns the whole tree that the caller may see. No parameters. Data: the array of top-level
// nodes, each with its subtree in "children".
void list_tree_by_uid_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// Lists one level of groups. It is not in gTable; callers use the exported name. Unlike the handlers above, it takes
// the user from the parameters, and req and resp must not be null. Parameters, each optional and passed to the store as
// text: "offset", "limit", "sort_by", "sort_direction", "ugid", "user_type". Data: {"objects": [...], "offset": as
// sent, "total": 0, "count": number of objects}. 500: any failure.
void list_one_level_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp);

// Converts the request parameters of one group into a group record, with the values as sent. isCreate: 1 requires "id",
// "name" and "parent_id"; any other value requires nothing. Returns the record, which the caller owns. Returns a null
// value if a required parameter is missing, or if req is null; the latter also sets the last-error record to 0x0D00.
Json::Value VELQZEMOuHttpReqToJson(VELQ::APIRequest* req, int isCreate);

}  // extern "C"

#pragma GCC visibility pop
