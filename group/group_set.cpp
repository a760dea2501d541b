// The handler of "VELQ.ZEM.KXGroup" "set": changes one group or several.
#include <memory>

#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "frame/group_permission.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "frame/request_records.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_zem.h"

namespace {

constexpr int updateMode = 0;

// Appends the request's group records to the array jRecords.
int read_records(VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jRecords)
{
    if (req.HasParam("multiple_data")) {
        return read_multiple_data(req, resp, jRecords);
    }
    Json::Value jTmp = VELQZEMOuHttpReqToJson(&req, updateMode);
    if (jTmp.isNull()) {
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    jRecords.append(std::move(jTmp));
    return 0;
}

// Loads the group, changes the members that the record has, and stores it.
int store_group(int64_t groupId, Json::Value& jRecord, _tag_velq_zem_ou_* pOu)
{
    if (0 > VELQZEMOuGet(groupId, pOu)) {
        return log_failed_call("0 > VELQZEMOuGet(tmpID, pOu)");
    }
    if (0 > VELQZEMOuJsonToStruct(jRecord, pOu)) {
        return log_failed_call("0 > VELQZEMOuJsonToStruct(multiple_data[i], pOu)");
    }
    if (0 > VELQZEMOuSet(pOu)) {
        return log_failed_call("0 > VELQZEMOuSet(pOu)");
    }
    return 0;
}

// Sets the delegates if the record has any. Reads "id" again, because the conversion may have changed the record.
int set_delegates(Json::Value& jRecord, VELQ::APIResponse& resp)
{
    int64_t id = 0;
    if (NULL == find_member(jRecord, "delegate")) {
        return 0;
    }
    if (0 > read_id(jRecord, resp, &id)) {
        return -1;
    }
    if (0 > VELQZEMDelegateSetListByTarget(id, VELQ_ZEM_TYPE_OU, jRecord)) {
        return log_failed_call(
            "0 > VELQZEMDelegateSetListByTarget((long)multiple_data[i][\"id\"].asInt64(), VELQ_ZEM_TYPE_OU, "
            "(multiple_data[i]))");
    }
    return 0;
}

int set_group(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, Json::Value& jRecord,
              _tag_velq_zem_ou_* pOu)
{
    int64_t groupId = 0;

    if (NULL == find_member(jRecord, "id")) {
        return log_failed_call("false == multiple_data[i].isMember(\"id\")");
    }
    if (0 > read_id(jRecord, resp, &groupId) || 0 > check_group_permission(req, resp, uid, groupId) ||
        0 > store_group(groupId, jRecord, pOu) || 0 > set_delegates(jRecord, resp)) {
        return -1;
    }
    // The group has been changed, so a failed notification of its servers must not make the answer an error.
    if (0 > VELQZEMGpoNotifyFetch(uid, VELQ_ZEM_TYPE_OU, groupId)) {
        log_notify_failed(uid, groupId);
    }
    return 0;
}

int set_groups(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, Json::Value& jRecords,
               _tag_velq_zem_ou_* pOu)
{
    for (Json::Value& jRecord : jRecords) {
        if (0 > set_group(req, resp, uid, jRecord, pOu)) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

void set_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jRecords(Json::arrayValue);
    uint32_t uid = 0;

    if (0 > check_request(req, resp) || 0 > begin_request(*req, *resp, &uid) ||
        0 > read_records(*req, *resp, jRecords)) {
        return;
    }
    const std::unique_ptr<_tag_velq_zem_ou_, void (*)(_tag_velq_zem_ou_*)> pOu(VELQZEMOuAlloc(), VELQZEMOuFree);
    if (NULL == pOu) {
        log_failed_call("NULL == (pOu = VELQZEMOuAlloc())");
        return;
    }
    if (0 == set_groups(*req, *resp, uid, jRecords, pOu.get())) {
        resp->SetSuccess(Json::Value());
    }
}
