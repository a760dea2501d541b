// Reads the nodes' delegates from the store and completes arrays of nodes.
#include "tree/node_decoration.h"

#include <optional>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "platform/velq_zem.h"
#include "tree/linked_policies.h"
#include "tree/prefetch.h"

namespace {

// The library does not copy a key of this type into every node.
const Json::StaticString szId("id");
const Json::StaticString szNodeType("node_type");
const Json::StaticString szDelegate("delegate");
const Json::StaticString szUserType("user_type");
const Json::StaticString szName("name");
const Json::StaticString szDomainType("domainType");
const Json::StaticString szDomainName("domainName");
const Json::StaticString szUgid("ugid");

// Appends one delegate to the array; leaves it out if its extra information is incomplete.
int append_delegate(const _tag_velq_zem_delegate_* pDelegate, Json::Value& jDelegates)
{
    Json::Value jExtra;
    int64_t userType = 0;
    uint64_t ugid = 0;

    fromString(jExtra, pDelegate->extraInfo.c_str());
    if (0 > VELQZEMDelegateItemGetUserType(&userType, pDelegate)) {
        return log_failed_call("0 > VELQZEMDelegateItemGetUserType(&userType, pDelegate)");
    }
    if (0 > VELQZEMDelegateItemGetUGID(&ugid, pDelegate)) {
        return log_failed_call("0 > VELQZEMDelegateItemGetUGID(&ugid, pDelegate)");
    }
    if (!jExtra.isObject() || !jExtra.isMember("domainType") || !jExtra.isMember("domainName") ||
        !jExtra.isMember("userNameCache")) {
        log_access_denied(
            "jExtra.empty() || !jExtra.isMember(\"domainType\") || !jExtra.isMember(\"domainName\") || "
            "!jExtra.isMember(\"userNameCache\")");
        return 0;
    }
    Json::Value& jEntry = jDelegates.append(Json::Value(Json::objectValue));
    jEntry[szUserType] = Json::Value(userType);
    jEntry[szName] = jExtra["userNameCache"];
    jEntry[szDomainType] = jExtra["domainType"];
    jEntry[szDomainName] = jExtra["domainName"];
    jEntry[szUgid] = Json::Value(ugid);
    return 0;
}

}  // namespace

int add_info_to_node(Json::Value& jArray, Json::Value& jGpoArray)
{
    std::optional<PolicyIndex> index;

    if (!jArray.isArray()) {
        return log_bad_parameter();
    }
    for (auto it = jArray.begin(), end = jArray.end(); it != end;) {
        Json::Value& jNode = *it;
        if (++it != end) {
            prefetch_members(*it);
        }
        if (0 > get_delegate_by_node(jNode)) {
            return log_failed_call("0 > get_delegate_by_node(jArray[i])");
        }
        if (0 > get_gpo_info_by_node(jNode, jGpoArray, index)) {
            return log_failed_call("0 > get_gpo_info_by_node(jArray[i], jGpoArray)");
        }
    }
    return 0;
}

int get_delegate_by_node(Json::Value& node)
{
    if (!node.isObject()) {
        return log_bad_parameter();
    }
    int64_t id = 0;
    int nodeType = 0;
    if (0 > read_int64(node[szId], &id) || 0 > read_int(node[szNodeType], &nodeType)) {
        return log_bad_parameter();
    }
    _tag_velq_zem_delegate_* pDelegateHead = NULL;
    int count = 0;
    if (0 > VELQZEMDelegateListByTarget(id, nodeType, &pDelegateHead, &count)) {
        return log_failed_call("0 > VELQZEMDelegateListByTarget(id, (int)nodeType, &pDelegateHead, &count)");
    }
    if (0 > VELQDelegateUpdateExtraInfoList(pDelegateHead, TRUE)) {
        return log_failed_call("0 > VELQDelegateUpdateExtraInfoList(pDelegateHead, TRUE)");
    }
    // The list belongs to the store and must not be released here.
    Json::Value jDelegates;  // null until the first delegate is appended
    for (const _tag_velq_zem_delegate_* pDelegate = pDelegateHead; NULL != pDelegate;
         pDelegate = VELQZEMDelegateNext(pDelegate)) {
        if (0 > append_delegate(pDelegate, jDelegates)) {
            return -1;
        }
    }
    if (!jDelegates.empty()) {
        node[szDelegate] = std::move(jDelegates);
    }
    return 0;
}
