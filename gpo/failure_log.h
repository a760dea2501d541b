// Writes the module's lines to the system log, in the same formats as webapi_zem_ou.so.
//
// Every function leaves errno unchanged, and any thread may call it. The parameter line, the source line in the log
// entry, defaults to the line of the call.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

namespace gpo {

// Logs a check that failed, with the text of errno. szExpr: the text of the check. Returns -1.
int log_failed_call(const char* szExpr, int line = __builtin_LINE());

// Logs that the handler was called with a null req or resp.
void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());

// Logs that the uid of the logged-in caller cannot be determined.
void log_no_login_uid(int line = __builtin_LINE());

// Logs that the user may not manage the group, with the reason in the platform's last-error record.
void log_no_permission(const char* szUser, int64_t groupId, int line = __builtin_LINE());

// Logs that the servers of a changed node could not be made to fetch their policies. uid: of the caller.
void log_notify_failed(uint32_t uid, int64_t nodeId, int line = __builtin_LINE());

}  // namespace gpo
