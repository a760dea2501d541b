// The handler of "VELQ.ZEM.KXGroup" "create": creates one group or several.
#include "frame/failure_log.h"
#include "frame/group_permission.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_zem.h"

namespace {

constexpr int createMode = 1;

// Appends the request's group records to the array jRecords.
int read_records(VELQ::APIRequest& req, Json::Value& jRecords, bool* pIsMultiple)
{
    *pIsMultiple = req.HasParam("multiple_data");
    if (*pIsMultiple) {
        Json::Value jTmp = req.GetParam("multiple_data", Json::Value());
        if (!jTmp.isArray()) {
            return log_failed_call("false == jTmp.isArray()");
        }
        jRecords.swap(jTmp);
        return 0;
    }
    Json::Value jTmp = VELQZEMOuHttpReqToJson(&req, createMode);
    if (jTmp.isNull()) {
        return log_failed_call("true == jTmp.isNull()");
    }
    jRecords.append(std::move(jTmp));
    return 0;
}

int set_delegates(Json::Value& jRecord)
{
    int64_t id = 0;
    if (0 > read_int64(jRecord["id"], &id) || 0 > VELQZEMDelegateOverrideListByTarget(id, VELQ_ZEM_TYPE_OU, jRecord)) {
        return log_failed_call(
            "0 > VELQZEMDelegateOverrideListByTarget((long)multiple_data[i][\"id\"].asInt64(), VELQ_ZEM_TYPE_OU, "
            "(multiple_data[i]))");
    }
    return 0;
}

// Creates one group with its delegates and writes its identifier to *pNewId.
int create_group(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, Json::Value& jRecord,
                 int64_t* pNewId)
{
    _tag_velq_zem_ou_ ou;

    if (0 > VELQZEMOuJsonToStruct(jRecord, &ou)) {
        return log_failed_call("0 > VELQZEMOuJsonToStruct(multiple_data[i], &ou)");
    }
    if (!can_have_members(jRecord)) {  // the conversion may have changed the record, which gets an "id" below
        return log_bad_parameter();
    }
    if (0 > check_group_permission(req, resp, uid, ou.parentId)) {
        return -1;
    }
    if (0 > VELQZEMOuCreate(&ou)) {
        return log_failed_call("0 > VELQZEMOuCreate(&ou)");
    }
    VELQZEMOuItemGetID(pNewId, &ou);
    jRecord["id"] = Json::Value(*pNewId);
    return set_delegates(jRecord);
}

int create_groups(VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, Json::Value& jResult)
{
    Json::Value jRecords(Json::arrayValue);
    Json::Value jIds(Json::arrayValue);
    bool isMultiple = false;
    int64_t newId = 0;

    if (0 > read_records(req, jRecords, &isMultiple)) {
        return -1;
    }
    for (Json::Value& jRecord : jRecords) {
        if (0 > create_group(req, resp, uid, jRecord, &newId)) {
            return -1;
        }
        jIds.append(Json::Value(newId));
    }
    jResult["ids"] = isMultiple ? jIds : jIds[0];
    return 0;
}

}  // namespace

void create_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jResult;
    uint32_t uid = 0;

    if (0 > check_request(req, resp) || 0 > begin_request(*req, *resp, &uid)) {
        return;
    }
    if (0 == create_groups(*req, *resp, uid, jResult)) {
        resp->SetSuccess(jResult);
    }
}
