// Writes the modules' log lines. Log filters depend on every byte of the formats, spelling mistakes included.
#include "frame/failure_log.h"

#include <cerrno>
#include <cstdio>

#include <syslog.h>
#include <unistd.h>

#include "platform/velq_core.h"

namespace {

// Calls write, which writes one log line. Sets errno to err before the call, for the "%m" of the format, and again
// afterwards, because syslog and printf may change errno.
template <typename Write>
void write_line(int err, Write write)
{
    errno = err;
    write();
    errno = err;
}

// Does the same for a line on standard output, if terminal debugging is on.
template <typename Write>
void write_echo(int err, Write write)
{
    if (giTerminalDebug) {
        write_line(err, write);
    }
}

}  // namespace

int log_failed_call(const char* szExpr, const char* szFile, int line)
{
    const int err = errno;
    const uid_t euid = geteuid();
    const pid_t pid = getpid();

    write_line(err, [=] {
        syslog(LOG_ERR,
               EACCES == err ? "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)!!Failed [%s], err=%m\n\n"
               : 0 == err    ? "%s:%d (euid=%u)(pid=%d)(%s:%d)(%m)Failed [%s], err=%m\n\n"
                             : "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)Failed [%s], err=%m\n\n",
               szFile, line, euid, pid, szFile, line, szExpr);
    });
    write_echo(err, [=] {
        printf(EACCES == err ? "(%s:%d)(euid=%u)(pid=%d)(%s:%d)(%m)!!Failed [%s], err=%m\n\n"
                             : "(%s:%d)(euid=%u)(pid=%d)(%s:%d)(%m)Failed [%s], err=%m\n\n",
               szFile, line, euid, pid, szFile, line, szExpr);
    });
    return -1;
}

int log_bad_parameter(const char* szFile, int line)
{
    const int err = errno;
    const uid_t euid = geteuid();
    const pid_t pid = getpid();

    write_line(err, [=] {
        syslog(LOG_ERR,
               0 != err ? "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)bad parameter\n\n"
                        : "%s:%d (euid=%u)(pid=%d)(%s:%d)(%m)bad parameter\n\n",
               szFile, line, euid, pid, szFile, line);
    });
    write_echo(err, [=] {
        printf("(%s:%d)(euid=%u)(pid=%d)(%s:%d)(%m)bad parameter\n\n", szFile, line, euid, pid, szFile, line);
    });
    return -1;
}

int log_access_denied(const char* szExpr, const char* szFile, int line)
{
    const int err = errno;
    if (EACCES != err) {
        return -1;
    }
    const uid_t euid = geteuid();
    const pid_t pid = getpid();

    write_line(err, [=] {
        syslog(LOG_ERR, "%s:%d (euid=%u)(pid=%d)(%m)!!Failed [%s], err=%m\n", szFile, line, euid, pid, szExpr);
    });
    write_echo(err,
               [=] { printf("(%s:%d)(euid=%u)(pid=%d)!!Failed [%s], err=%m\n", szFile, line, euid, pid, szExpr); });
    return -1;
}

int log_malloc_hash(const char* szFile, int line)
{
    const int err = errno;
    const uid_t euid = geteuid();
    const pid_t pid = getpid();

    if (EACCES == err) {
        write_line(err, [=] {
            syslog(LOG_ERR, "%s:%d (euid=%u)(pid=%d)(%m)!!Fail EACESS, err=%m\n", szFile, line, euid, pid);
        });
        write_echo(err, [=] { printf("(%s:%d)(euid=%u)(pid=%d)!!Fail EACESS, err=%m\n", szFile, line, euid, pid); });
    }
    write_line(err, [=] {
        syslog(LOG_ERR,
               0 != err ? "%s:%d (euid=%u)(pid=%d)(%m)(%s:%d)(%m)malloc hash failed\n\n"
                        : "%s:%d (euid=%u)(pid=%d)(%s:%d)(%m)malloc hash failed\n\n",
               szFile, line, euid, pid, szFile, line);
    });
    write_echo(err, [=] {
        printf("(%s:%d)(euid=%u)(pid=%d)(%s:%d)(%m)malloc hash failed\n\n", szFile, line, euid, pid, szFile, line);
    });
    return -1;
}

void log_null_request(const VELQ::APIRequest* req, const VELQ::APIResponse* resp, int line)
{
    write_line(errno, [=] {
        syslog(LOG_ERR, "%s:%d req=%p or resp=%p is NULL", szModuleSource, line, static_cast<const void*>(req),
               static_cast<const void*>(resp));
    });
}

void log_no_login_uid(int line)
{
    write_line(errno, [=] { syslog(LOG_ERR, "%s:%d Failed to get login uid", szModuleSource, line); });
}

void log_no_permission(const char* szUser, int64_t groupId, int errCode, const char* szErrFile, int errLine, int line)
{
    write_line(errno, [=] {
        syslog(LOG_ERR, "%s:%d No permission for normal user [%s] on group [%ld]. [0x%04X %s:%d]", szModuleSource, line,
               szUser, groupId, static_cast<unsigned>(errCode), szErrFile, errLine);
    });
}

void log_root_delete(int line)
{
    write_line(errno, [=] { syslog(LOG_ERR, "%s:%d Deleting ROOT OU is not allowed.", szModuleSource, line); });
}

void log_notify_failed(uint32_t uid, int64_t nodeId, int line)
{
    write_line(errno, [=] {
        syslog(LOG_ERR, "%s:%d fail to VELQZEMGpoNotifyFetch uid=%u id=%ld", szModuleSource, line, uid, nodeId);
    });
}

void log_invalid_argument(const char* szExpr, int line)
{
    write_line(errno, [=] { syslog(LOG_ERR, "%s:%d Invaild Argument (%s)=[%d]\n", szModuleSource, line, szExpr, 0); });
}
