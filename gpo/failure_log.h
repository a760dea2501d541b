// The lines that the module writes to the system log, worded as those of its neighbours. Each leaves errno as it was.
// The line number defaults to the caller's own line. All may be called by any thread.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

namespace gpo {

// A check that failed, with what errno says. szExpr: the text of the check. Returns -1.
int log_failed_call(const char* szExpr, int line = __builtin_LINE());

void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());
void log_no_login_uid(int line = __builtin_LINE());

// The store's reason is taken from the platform's last-error record.
void log_no_permission(const char* szUser, int64_t groupId, int line = __builtin_LINE());

void log_notify_failed(uint32_t uid, int64_t nodeId, int line = __builtin_LINE());

}  // namespace gpo
