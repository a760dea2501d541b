// The steps with which every handler of the method table begins.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Refuses a null request or response with a log line. Returns 0, or -1: return at once then, nothing may be called.
int check_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());

// Reads the caller's uid into *pUid and sets the default error 117, which stays until something else is set.
// Returns 0, or -1 after a log line with error 105 set: the uid cannot be determined.
int begin_request(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t* pUid, int line = __builtin_LINE());
