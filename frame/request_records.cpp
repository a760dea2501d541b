// Reads the records and identifiers of a request.
#include "frame/request_records.h"

#include <utility>

#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "frame/json_read.h"

int read_multiple_data(const VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jRecords)
{
    Json::Value jTmp = req.GetParam("multiple_data", Json::Value());
    if (!jTmp.isArray()) {
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    jRecords.swap(jTmp);
    return 0;
}

int read_node_ids(const VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jIds)
{
    if (!req.HasParam("node_id")) {
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    Json::Value jTmp = req.GetParam("node_id", Json::Value());
    if (jTmp.isArray()) {
        jIds.swap(jTmp);
    } else {
        jIds.append(std::move(jTmp));
    }
    return 0;
}

int read_id(const Json::Value& jRecord, VELQ::APIResponse& resp, int64_t* pId)
{
    if (0 > read_member(jRecord, "id", pId)) {
        log_bad_parameter();
        resp.SetError(errParameter, Json::Value());
        return -1;
    }
    return 0;
}
