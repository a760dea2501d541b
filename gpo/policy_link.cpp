// The handler of "VELQ.ZEM.GPO" "link": links one policy to groups and servers, or removes such links.
#include "gpo/policy_link.h"

#include <cerrno>
#include <memory>

#include "frame/error_codes.h"
#include "frame/failure_log.h"
#include "frame/group_permission.h"
#include "frame/handler_frame.h"
#include "frame/server_permission.h"
#include "include/webapi_zem_lib.h"
#include "platform/velq_zem.h"

namespace {

// The parameters with targets, in the order in which they are handled, and whether their links are added or removed.
constexpr struct {
    const char* szTargets;
    int isAdd;
} changes[] = {{"target_add", 1}, {"target_remove", 0}};

// One request: its sender, and the policy with its targets.
struct LinkRequest {
    VELQ::APIRequest* req;
    VELQ::APIResponse* resp;
    uint32_t uid;
    _tag_velq_zem_kx_* pKx;  // record for the server that is being checked
    int64_t serverType;      // "node_type" of servers
    Json::Value jPolicy;
};

bool is_group(const Json::Value& jTarget)
{
    return VELQ_ZEM_TYPE_OU == jTarget["node_type"].asInt64();
}

bool is_target(const Json::Value& jTarget, int64_t serverType)
{
    return jTarget.isObject() && jTarget["node_id"].isInt64() && jTarget["node_type"].isInt() &&
           (is_group(jTarget) || serverType == jTarget["node_type"].asInt64());
}

bool is_link_request(const Json::Value& jPolicy, int64_t serverType)
{
    bool isAny = false;
    for (const auto& change : changes) {
        const Json::Value& jTargets = jPolicy[change.szTargets];
        if (!jTargets.isArray() && !jTargets.isNull()) {
            return false;
        }
        for (const Json::Value& jTarget : jTargets) {
            if (!is_target(jTarget, serverType)) {
                return false;
            }
        }
        isAny = isAny || jTargets.isArray();
    }
    return isAny;
}

// Reads the parameters into the policy's record, and its identifier into each target.
int read_policy(LinkRequest* pLink)
{
    const Json::Value jId = pLink->req->GetParam("id", Json::Value());
    if (jId.isInt64()) {
        pLink->jPolicy["id"] = Json::Int64(jId.asInt64());
        VELQZEMHttpReqToJsonForLinkedTarget(pLink->req, pLink->jPolicy);
    }
    if (!jId.isInt64() || !is_link_request(pLink->jPolicy, pLink->serverType)) {
        pLink->resp->SetError(errParameter, Json::Value());
        return log_failed_call("!is_link_request(jPolicy, serverType)");
    }
    return 0;
}

int check_target(const LinkRequest* pLink, const Json::Value& jTarget, int)
{
    const int64_t nodeId = jTarget["node_id"].asInt64();
    return is_group(jTarget) ? check_group_permission(*pLink->req, *pLink->resp, pLink->uid, nodeId)
                             : check_server_permission(*pLink->req, *pLink->resp, pLink->uid, nodeId, pLink->pKx);
}

int update_target(const LinkRequest* pLink, Json::Value& jTarget, int isAdd)
{
    const bool isGroup = is_group(jTarget);
    errno = 0;  // an earlier EACCES must not look like a refusal
    if (0 > (isGroup ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jTarget, isAdd)) {
        if (EACCES == errno) {
            pLink->resp->SetError(errPermission, Json::Value());
        }
        return log_failed_call(isGroup ? "0 > VELQZEMOuUpdateLinkGpo(jTarget, isAdd)"
                                       : "0 > VELQZEMKxUpdateLinkGpo(jTarget, isAdd)");
    }
    // The links have been changed, so a failed notification of the servers must not make the answer an error.
    const int64_t nodeId = jTarget["node_id"].asInt64();
    if (0 > VELQZEMGpoNotifyFetch(pLink->uid, jTarget["node_type"].asInt(), nodeId)) {
        log_notify_failed(pLink->uid, nodeId);
    }
    return 0;
}

// Calls work for each target in turn, until one call fails.
template <typename Work>
int for_each_target(LinkRequest* pLink, Work work)
{
    for (const auto& change : changes) {
        for (Json::Value& jTarget : pLink->jPolicy[change.szTargets]) {
            if (0 > work(pLink, jTarget, change.isAdd)) {
                return -1;
            }
        }
    }
    return 0;
}

}  // namespace

void link_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    uint32_t uid = 0;

    if (0 > check_request(req, resp) || 0 > begin_request(*req, *resp, &uid)) {
        return;
    }
    LinkRequest link = {req, resp, uid, NULL, 0, Json::Value()};
    const std::unique_ptr<_tag_velq_zem_kx_, void (*)(_tag_velq_zem_kx_*)> pKx(VELQZEMKxAlloc(), VELQZEMKxFree);
    if (NULL == pKx) {
        log_failed_call("NULL == (pKx = VELQZEMKxAlloc())");
        return;
    }
    link.pKx = pKx.get();
    // The store chooses the kind of servers, so it is read from a newly allocated record.
    if (0 == read_server_member(link.pKx, "node_type", &link.serverType) && 0 == read_policy(&link) &&
        0 == for_each_target(&link, check_target) && 0 == for_each_target(&link, update_target)) {
        resp->SetSuccess(Json::Value());
    }
}
