// Converts the request parameters of one group into a group record.
#include <string>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_ou.h"
#include "platform/velq_core.h"
#include "platform/velq_zem.h"

namespace {

constexpr int invalidArgument = 0x0D00;  // error code of the platform

void copy_if_present(const VELQ::APIRequest& req, const std::string& name, Json::Value& jRecord)
{
    if (req.HasParam(name)) {
        jRecord[name] = req.GetParam(name, Json::Value());
    }
}

int refuse_null_request(int line = __builtin_LINE())
{
    log_invalid_argument("__null != req", line);
    VLIBCErrSetEx(invalidArgument, szModuleSource, line);
    return -1;
}

int request_to_record(const VELQ::APIRequest& req, bool isCreate, Json::Value& jRecord)
{
    // The console sends an "id" with every create, but the identifier itself is "node_id".
    if (isCreate && !req.HasParam("id")) {
        return -1;
    }
    jRecord["id"] = req.GetParam("node_id", Json::Value());
    copy_if_present(req, "mtime", jRecord);

    if (isCreate && !req.HasParam("name")) {
        return -1;
    }
    jRecord["name"] = req.GetParam("name", Json::Value());
    copy_if_present(req, "desc", jRecord);

    if (isCreate && !req.HasParam("parent_id")) {
        return -1;
    }
    jRecord["parent_id"] = req.GetParam("parent_id", Json::Value());
    copy_if_present(req, "block_inheritance", jRecord);

    // The result is ignored: a value that the store refuses here, or a record that is no object any more, makes a later
    // step of create or set fail.
    if (req.HasParam("linked_gpo")) {
        VELQZEMHttpReqToJsonForLinkedGpo(req.GetParam("linked_gpo", Json::Value()), jRecord);
    }
    if (!can_have_members(jRecord)) {
        return 0;
    }
    copy_if_present(req, "extra_info", jRecord);
    copy_if_present(req, "delegate", jRecord);
    return 0;
}

}  // namespace

Json::Value VELQZEMOuHttpReqToJson(VELQ::APIRequest* req, int isCreate)
{
    Json::Value jRecord(Json::objectValue);

    if (NULL == req) {
        refuse_null_request();
        return Json::Value();
    }
    if (0 > request_to_record(*req, 1 == isCreate, jRecord)) {
        return Json::Value();
    }
    return jRecord;
}
