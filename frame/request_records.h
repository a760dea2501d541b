// Reads the records and identifiers of a request: the parameters that several handlers share.
//
// Each function returns 0, or -1 after it has set error 101; its result is then unchanged.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Replaces the array jRecords by the parameter "multiple_data", which must be an array.
int read_multiple_data(const VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jRecords);

// Puts the parameter "node_id", an identifier or an array of them, into the array jIds, which is empty. It must be
// there; its values are not checked.
int read_node_ids(const VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jIds);

// Reads the record's "id" into *pId. Writes a log line if it is not a signed 64-bit integer.
int read_id(const Json::Value& jRecord, VELQ::APIResponse& resp, int64_t* pId);
