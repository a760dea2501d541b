// The handler of "VELQ.ZEM.GPO" "link": links one policy to groups and servers, or removes such links.
#include "gpo/policy_link.h"

#include <cerrno>
#include <memory>

#include "gpo/failure_log.h"
#include "include/webapi_zem_lib.h"
#include "platform/velq_zem.h"

namespace {

enum ErrorCode { errParameter = 101, errLogin = 105, errFailed = 117, errPermission = 414 };

constexpr int64_t rootGroup = 0;

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

int read_server_member(const _tag_velq_zem_kx_* pKx, const char* szName, int64_t* pValue)
{
    Json::Value jSearchArray(Json::arrayValue);
    Json::Value jKx(Json::objectValue);

    jSearchArray.append(szName);
    if (0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)) {
        return gpo::log_failed_call("0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)");
    }
    if (!jKx.isObject() || !jKx[szName].isInt64()) {
        return gpo::log_failed_call("!jKx[szName].isInt64()");
    }
    *pValue = jKx[szName].asInt64();
    return 0;
}

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
        return gpo::log_failed_call("!is_link_request(jPolicy, serverType)");
    }
    return 0;
}

int check_group(const LinkRequest* pLink, int64_t groupId)
{
    if (0 != VELQZEMOuCanManagedByUid(pLink->uid, groupId)) {
        return 0;
    }
    pLink->resp->SetError(errPermission, Json::Value());
    gpo::log_no_permission(pLink->req->GetLoginUserName().c_str(), groupId);
    return -1;
}

// Finds the server's group. A server that does not exist counts as in the root group, whose managers may learn that it
// does not exist.
int find_group_of_server(const LinkRequest* pLink, int64_t serverId, int64_t* pGroupId)
{
    *pGroupId = rootGroup;
    if (0 > VELQZEMKxGet(serverId, pLink->pKx)) {
        const bool isMissing = ENOENT == errno;
        gpo::log_failed_call("0 > VELQZEMKxGet(serverId, pKx)");
        return isMissing ? 0 : -1;
    }
    return read_server_member(pLink->pKx, "parent_id", pGroupId);
}

// If the caller may not manage the server's group, the refusal names the root group, exactly as for a server that does
// not exist. So a caller without permission cannot find out which servers exist.
int check_server(const LinkRequest* pLink, int64_t serverId)
{
    int64_t groupId = 0;
    if (0 > find_group_of_server(pLink, serverId, &groupId)) {
        return -1;
    }
    return 0 != VELQZEMOuCanManagedByUid(pLink->uid, groupId) ? 0 : check_group(pLink, rootGroup);
}

int check_target(const LinkRequest* pLink, const Json::Value& jTarget, int)
{
    const int64_t nodeId = jTarget["node_id"].asInt64();
    return is_group(jTarget) ? check_group(pLink, nodeId) : check_server(pLink, nodeId);
}

int update_target(const LinkRequest* pLink, Json::Value& jTarget, int isAdd)
{
    const bool isGroup = is_group(jTarget);
    errno = 0;  // an earlier EACCES must not look like a refusal
    if (0 > (isGroup ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jTarget, isAdd)) {
        if (EACCES == errno) {
            pLink->resp->SetError(errPermission, Json::Value());
        }
        return gpo::log_failed_call(isGroup ? "0 > VELQZEMOuUpdateLinkGpo(jTarget, isAdd)"
                                            : "0 > VELQZEMKxUpdateLinkGpo(jTarget, isAdd)");
    }
    // The links have been changed, so a failed notification of the servers must not make the answer an error.
    const int64_t nodeId = jTarget["node_id"].asInt64();
    if (0 > VELQZEMGpoNotifyFetch(pLink->uid, jTarget["node_type"].asInt(), nodeId)) {
        gpo::log_notify_failed(pLink->uid, nodeId);
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
    if (NULL == req || NULL == resp) {
        gpo::log_null_request(req, resp);
        return;
    }
    LinkRequest link = {req, resp, req->GetLoginUID(), NULL, 0, Json::Value()};
    if (UINT32_MAX == link.uid) {
        gpo::log_no_login_uid();
        resp->SetError(errLogin, Json::Value());
        return;
    }
    resp->SetError(errFailed, Json::Value());
    const std::unique_ptr<_tag_velq_zem_kx_, void (*)(_tag_velq_zem_kx_*)> pKx(VELQZEMKxAlloc(), VELQZEMKxFree);
    if (NULL == pKx) {
        gpo::log_failed_call("NULL == (pKx = VELQZEMKxAlloc())");
        return;
    }
    link.pKx = pKx.get();
    // The store chooses the kind of servers, so it is read from a newly allocated record.
    if (0 == read_server_member(link.pKx, "node_type", &link.serverType) && 0 == read_policy(&link) &&
        0 == for_each_target(&link, check_target) && 0 == for_each_target(&link, update_target)) {
        resp->SetSuccess(Json::Value());
    }
}
