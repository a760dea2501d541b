// The targets of a policy-link request, stamped with the policy that they are to link.
#include "frame/failure_log.h"
#include "include/webapi_zem_lib.h"

namespace {

constexpr const char* szTargetKeys[] = {"target_add", "target_remove"};

// Entries that are no objects have no place for the stamp and stay as they are.
void stamp_targets(Json::Value& jTargets, Json::Value& jOut)
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
    if (!jOut.isObject() && !jOut.isNull()) {
        log_bad_parameter(szSourceLib);
        return;
    }
    for (const char* szKey : szTargetKeys) {
        if (!req->HasParam(szKey)) {
            continue;
        }
        Json::Value& jTargets = jOut[szKey];
        jTargets = req->GetParam(szKey, Json::Value());
        stamp_targets(jTargets, jOut);
    }
}
