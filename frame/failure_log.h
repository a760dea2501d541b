// Failure logging: every line that the module writes to the system log.
//
// A family words its line by errno at the moment of the call and, when giTerminalDebug is set, echoes it to standard
// output; a plain line does neither. Each operation reads errno once, on entry, and leaves it as it was. The line
// number defaults to the caller's own line. All may be called by any thread.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Source names that the lines carry: the handlers', and the exported link functions'.
constexpr char szSourceOu[] = "webapi_zem_ou.cpp";
constexpr char szSourceLib[] = "webapi_zem_lib.cpp";

// --- Families. Each returns -1, the result of the function that failed.
//
// szExpr: the text under which log filters know the check, spaces and old names included. It is not always the check in
// the code, which may be written in another way or look at more: the text stays as it is when the code changes.

// A check that failed, typically a call into the platform.
int log_failed_call(const char* szExpr, const char* szFile = szSourceOu, int line = __builtin_LINE());

// An argument that a function refuses on entry.
int log_bad_parameter(const char* szFile = szSourceOu, int line = __builtin_LINE());

// A failure that is worth a line only when it is a refusal of access: writes nothing unless errno is EACCES.
int log_access_denied(const char* szExpr, const char* szFile = szSourceOu, int line = __builtin_LINE());

// A string hash that could not be allocated.
int log_malloc_hash(const char* szFile = szSourceOu, int line = __builtin_LINE());

// --- Plain lines

void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line = __builtin_LINE());
void log_no_login_uid(int line = __builtin_LINE());

// The last three are the platform's last-error record: why the caller may not manage the group.
void log_no_permission(const char* szUser, int64_t groupId, int errCode, const char* szErrFile, int errLine,
                       int line = __builtin_LINE());

void log_root_delete(int line = __builtin_LINE());
void log_notify_failed(uint32_t uid, int64_t groupId, int line = __builtin_LINE());
void log_invalid_argument(const char* szExpr, int line = __builtin_LINE());
