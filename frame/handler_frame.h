// Makes the first checks of every handler in the method table.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Returns 0, or -1 after a log line if req or resp is null; the handler must then return without any further call.
int check_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());

// Reads the caller's uid into *pUid and sets the default error 117, which a later SetError or SetSuccess replaces.
// Returns 0; if the uid cannot be determined, writes a log line, sets error 105 and returns -1.
int begin_request(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t* pUid, int line = __builtin_LINE());
