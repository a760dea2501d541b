// The handler of "VELQ.ZEM.KX" "set": changes one server or several.
#include "kx/server_set.h"

#include <memory>

#include "frame/failure_log.h"
#include "frame/handler_frame.h"
#include "frame/json_read.h"
#include "frame/request_records.h"
#include "frame/server_permission.h"
#include "platform/velq_zem.h"

namespace {

// One request, with its sender and a record for the server that is being changed.
struct SetRequest {
    const VELQ::APIRequest& req;
    VELQ::APIResponse& resp;
    uint32_t uid;
    _tag_velq_zem_kx_* pKx;
    int64_t serverType;  // "node_type" of servers
};

// Returns a record without identifier of the parameters that are members of a server.
Json::Value read_members(const VELQ::APIRequest& req)
{
    Json::Value jRecord(Json::objectValue);
    for (const char* szName : {"name", "address", "parent_id"}) {
        if (req.HasParam(szName)) {
            jRecord[szName] = req.GetParam(szName, Json::Value());
        }
    }
    // The result is ignored: a value that the store refuses here, or a record that is no object any more, makes a later
    // step fail.
    if (req.HasParam("linked_gpo")) {
        VELQZEMHttpReqToJsonForLinkedGpo(req.GetParam("linked_gpo", Json::Value()), jRecord);
    }
    return jRecord;
}

// Reads the request's server records into the empty array jItems. If the servers all get the same members, reads their
// identifiers into jItems and the members into jShared: a copy for each server could take more memory than there is.
int read_items(const VELQ::APIRequest& req, VELQ::APIResponse& resp, Json::Value& jItems, Json::Value& jShared)
{
    if (req.HasParam("multiple_data")) {
        return read_multiple_data(req, resp, jItems);
    }
    if (0 > read_node_ids(req, resp, jItems)) {
        return -1;
    }
    jShared = read_members(req);
    return 0;
}

// Returns the members of the record that a client may change, and those that identify what it changes.
Json::Value copy_known_members(const Json::Value& jRecord)
{
    Json::Value jCopy(Json::objectValue);
    for (const char* szName : {"id", "revision", "name", "address", "parent_id", "linked_gpo"}) {
        if (const Json::Value* pjMember = find_member(jRecord, szName)) {
            jCopy[szName] = *pjMember;
        }
    }
    return jCopy;
}

// Loads the server, changes the members that the record has, and stores it.
int store_server(int64_t serverId, const Json::Value& jRecord, _tag_velq_zem_kx_* pKx)
{
    Json::Value jMembers = copy_known_members(jRecord);

    if (0 > VELQZEMKxGet(serverId, pKx)) {
        return log_failed_call("0 > VELQZEMKxGet(serverId, pKx)");
    }
    if (0 > VELQZEMKxJsonToStruct(jMembers, pKx)) {
        return log_failed_call("0 > VELQZEMKxJsonToStruct(multiple_data[i], pKx)");
    }
    if (0 > VELQZEMKxSet(pKx)) {
        return log_failed_call("0 > VELQZEMKxSet(pKx)");
    }
    return 0;
}

int set_server(const SetRequest& set, const Json::Value& jRecord)
{
    int64_t serverId = 0;

    if (NULL == find_member(jRecord, "id")) {
        return log_failed_call("false == multiple_data[i].isMember(\"id\")");
    }
    if (0 > read_id(jRecord, set.resp, &serverId) ||
        0 > check_server_permission(set.req, set.resp, set.uid, serverId, set.pKx) ||
        0 > store_server(serverId, jRecord, set.pKx)) {
        return -1;
    }
    // The server has been changed, so a failed notification must not make the answer an error.
    if (0 > VELQZEMGpoNotifyFetch(set.uid, static_cast<int>(set.serverType), serverId)) {
        log_notify_failed(set.uid, serverId);
    }
    return 0;
}

// jShared: null if the items are records; otherwise each item is put into it as its "id".
int set_servers(const SetRequest& set, const Json::Value& jItems, Json::Value& jShared)
{
    for (const Json::Value& jItem : jItems) {
        if (jShared.isObject()) {
            jShared["id"] = jItem;
        }
        if (0 > set_server(set, jShared.isNull() ? jItem : jShared)) {
            return -1;
        }
    }
    return 0;
}

}  // namespace

void set_servers_v1(VELQ::APIRequest* req, VELQ::APIResponse* resp)
{
    Json::Value jItems(Json::arrayValue);
    Json::Value jShared;
    uint32_t uid = 0;

    if (0 > check_request(req, resp) || 0 > begin_request(*req, *resp, &uid) ||
        0 > read_items(*req, *resp, jItems, jShared)) {
        return;
    }
    const std::unique_ptr<_tag_velq_zem_kx_, void (*)(_tag_velq_zem_kx_*)> pKx(VELQZEMKxAlloc(), VELQZEMKxFree);
    if (NULL == pKx) {
        log_failed_call("NULL == (pKx = VELQZEMKxAlloc())");
        return;
    }
    SetRequest set = {*req, *resp, uid, pKx.get(), 0};
    // The store chooses the kind of servers, so it is read from a newly allocated record.
    if (0 == read_server_member(set.pKx, "node_type", &set.serverType) && 0 == set_servers(set, jItems, jShared)) {
        resp->SetSuccess(Json::Value());
    }
}
