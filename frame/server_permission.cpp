// Asks the store whether a user may manage a server, which means: its group.
#include "frame/server_permission.h"

#include <cerrno>

#include "frame/failure_log.h"
#include "frame/group_permission.h"

namespace {

constexpr int64_t rootGroup = 0;

// Finds the server's group. A server that does not exist counts as in the root group, whose managers may learn that it
// does not exist.
int find_group_of_server(int64_t serverId, _tag_velq_zem_kx_* pKx, int64_t* pGroupId)
{
    *pGroupId = rootGroup;
    if (0 > VELQZEMKxGet(serverId, pKx)) {
        const bool isMissing = ENOENT == errno;
        log_failed_call("0 > VELQZEMKxGet(serverId, pKx)");
        return isMissing ? 0 : -1;
    }
    return read_server_member(pKx, "parent_id", pGroupId);
}

}  // namespace

int read_server_member(const _tag_velq_zem_kx_* pKx, const char* szName, int64_t* pValue)
{
    Json::Value jSearchArray(Json::arrayValue);
    Json::Value jKx(Json::objectValue);

    jSearchArray.append(szName);
    if (0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)) {
        return log_failed_call("0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)");
    }
    if (!jKx.isObject() || !jKx[szName].isInt64()) {
        return log_failed_call("!jKx[szName].isInt64()");
    }
    *pValue = jKx[szName].asInt64();
    return 0;
}

int check_server_permission(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, int64_t serverId,
                            _tag_velq_zem_kx_* pKx)
{
    int64_t groupId = 0;
    if (0 > find_group_of_server(serverId, pKx, &groupId)) {
        return -1;
    }
    return 0 != VELQZEMOuCanManagedByUid(uid, groupId) ? 0 : check_group_permission(req, resp, uid, rootGroup);
}
