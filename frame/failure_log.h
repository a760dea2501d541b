// Writes every line that a module sends to the system log.
//
// There are two sorts of lines. A failure line contains the text of errno, its wording depends on errno at the time of
// the call, and it is repeated on standard output while giTerminalDebug is set. A plain line does none of that. Every
// function leaves errno unchanged, and any thread may call it. The parameter line, the source line in the log entry,
// defaults to the line of the call.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Source file names in the log entries: that of the module's handlers, which each module defines beside its method
// table, and that of the exported link functions.
extern const char szModuleSource[];
constexpr char szSourceLib[] = "webapi_zem_lib.cpp";

// --- Failure lines. Each function returns -1, so that a caller can return its result.
//
// szExpr: the text by which log filters recognise the failed check. It must stay as it is, spaces and old names
// included, even where the code has been rewritten since or checks more than the text says.

// Logs a check that failed, mostly a call into the platform.
int log_failed_call(const char* szExpr, const char* szFile = szModuleSource, int line = __builtin_LINE());

// Logs an invalid argument or value.
int log_bad_parameter(const char* szFile = szModuleSource, int line = __builtin_LINE());

// Logs a failed check only if errno is EACCES; writes nothing otherwise.
int log_access_denied(const char* szExpr, const char* szFile = szModuleSource, int line = __builtin_LINE());

// Logs that a string hash could not be allocated; with errno EACCES it writes two lines.
int log_malloc_hash(const char* szFile = szModuleSource, int line = __builtin_LINE());

// --- Plain lines

// Logs that a handler was called with a null req or resp.
void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());

// Logs that the uid of the logged-in caller cannot be determined.
void log_no_login_uid(int line = __builtin_LINE());

// Logs that the user may not manage the group. errCode, szErrFile and errLine: the platform's last-error record, which
// says why.
void log_no_permission(const char* szUser, int64_t groupId, int errCode, const char* szErrFile, int errLine,
                       int line = __builtin_LINE());

// Logs that a request would delete the root group.
void log_root_delete(int line = __builtin_LINE());

// Logs that the servers at or below a changed node could not be made to fetch their policies. uid: of the caller.
void log_notify_failed(uint32_t uid, int64_t nodeId, int line = __builtin_LINE());

// Logs an invalid argument of an exported function. szExpr: the check that failed.
void log_invalid_argument(const char* szExpr, int line = __builtin_LINE());
