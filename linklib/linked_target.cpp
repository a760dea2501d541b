// Copies the targets of a policy-link request into the policy's record and adds the policy's identifier to each.
#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "include/webapi_zem_lib.h"

namespace {

constexpr const char* szTargetKeys[] = {"target_add", "target_remove"};

// Sets "gpo_id" in every target; an entry that is not an object stays as it is.
void set_policy_id(Json::Value& jTargets, Json::Value& jOut)
{
    if (!jTargets.isArray()) {
        return;
    }
    for (Json::Value& jTarget : jTargets) {
        if (jTarget.isObject()) {
            jTarget["gpo_id"] = jOut["id"];
        }
    }
}

}  // namespace

void VELQZEMHttpReqToJsonForLinkedTarget(VELQ::APIRequest* req, Json::Value& jOut)
{
    if (NULL == req) {
        log_failed_call("!req", szSourceLib);
        return;
    }
    if (!can_have_members(jOut)) {
        log_bad_parameter(szSourceLib);
        return;
    }
    for (const char* szKey : szTargetKeys) {
        if (!req->HasParam(szKey)) {
            continue;
        }
        Json::Value& jTargets = jOut[szKey];
        jTargets = req->GetParam(szKey, Json::Value());
        set_policy_id(jTargets, jOut);
    }
}
