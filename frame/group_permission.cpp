// Asks the store whether a user may manage a group, and answers and logs the refusal.
#include "frame/group_permission.h"

#include <string>

#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "platform/velq_core.h"
#include "platform/velq_zem.h"

int check_group_permission(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, int64_t groupId,
                           int line)
{
    if (0 != VELQZEMOuCanManagedByUid(uid, groupId)) {
        return 0;
    }
    resp.SetError(errPermission, Json::Value());

    const int errLine = VLIBCErrorGetLine();
    const char* szErrFile = VLIBCErrorGetFile();
    const int errCode = VLIBCErrGet();
    const std::string user = req.GetLoginUserName();
    log_no_permission(user.c_str(), groupId, errCode, szErrFile, errLine, line);
    return -1;
}
