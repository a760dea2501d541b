// Writes the module's log lines.
#include "gpo/failure_log.h"

#include <cerrno>

#include <syslog.h>
#include <unistd.h>

#include "platform/velq_core.h"

namespace gpo {
namespace {

constexpr char szSource[] = "webapi_zem_gpo.cpp";

// Writes one line and restores errno, which syslog may change.
template <typename... Arguments>
void write_line(const char* szFormat, int line, Arguments... arguments)
{
    const int err = errno;
    syslog(LOG_ERR, szFormat, szSource, line, arguments...);
    errno = err;
}

}  // namespace

int log_failed_call(const char* szExpr, int line)
{
    write_line(EACCES == errno ? "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)!!Failed [%s], err=%m\n\n"
               : 0 == errno    ? "%s:%d (euid=%u)(pid=%d)(%s:%d)(%m)Failed [%s], err=%m\n\n"
                               : "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)Failed [%s], err=%m\n\n",
               line, geteuid(), getpid(), szSource, line, szExpr);
    return -1;
}

void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line)
{
    write_line("%s:%d req=%p or resp=%p is NULL", line, static_cast<const void*>(req), static_cast<const void*>(resp));
}

void log_no_login_uid(int line)
{
    write_line("%s:%d Failed to get login uid", line);
}

void log_no_permission(const char* szUser, int64_t groupId, int line)
{
    write_line("%s:%d No permission for normal user [%s] on group [%ld]. [0x%04X %s:%d]", line, szUser, groupId,
               static_cast<unsigned>(VLIBCErrGet()), VLIBCErrorGetFile(), VLIBCErrorGetLine());
}

void log_notify_failed(uint32_t uid, int64_t nodeId, int line)
{
    write_line("%s:%d fail to VELQZEMGpoNotifyFetch uid=%u id=%ld", line, uid, nodeId);
}

}  // namespace gpo
