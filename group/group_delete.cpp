// The handler of "VELQ.ZEM.KXGroup" "delete": deletes one group or several.
#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "frame/group_permission.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "frame/request_records.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_zem.h"

namespace {

int delete_group(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, const Json::Value& jId)
{
    int64_t groupId = 0;

    if (0 > read_int64(jId, &groupId)) {
        log_bad_parameter();
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    if (0 == groupId) {
        log_root_delete();
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    if (0 > check_group_permission(req, resp, uid, groupId)) {
        return -1;
    }
    if (0 > VELQZEMOuDeleteAllByID(groupId)) {
        return log_failed_call("0 > VELQZEMOuDeleteAllByID(tmpID)");
    }
    return 0;
}

}  // namespace

void delete_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jIds(Json::arrayValue);
    uint32_t uid = 0;

    if (0 > check_request(req, resp) || 0 > begin_request(*req, *resp, &uid) || 0 > read_node_ids(*req, *resp, jIds)) {
        return;
    }
    for (const Json::Value& jId : jIds) {
        if (0 > delete_group(*req, *resp, uid, jId)) {
            return;
        }
    }
    resp->SetSuccess(Json::Value());
}
