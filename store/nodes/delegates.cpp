// Lists and sets the delegates of groups and servers. Lists come from the snapshot of a listed tree where the thread
// keeps one, else from the database.
#include <algorithm>
#include <optional>
#include <unordered_map>

#include "store/history/recorder.h"
#include "store/nodes/listing_snapshot.h"
#include "store/records/delegates.h"
#include "store/rules/change.h"
#include "store/rules/checks.h"

namespace store {
namespace {

thread_local std::vector<Delegate> tListed;  // the thread's last list, which its caller still uses

std::vector<Delegate> readDelegates(soci::session& sql, int64_t nodeType, int64_t id)
{
    Reader<DelegateRow> reader(sql, "", "WHERE node_type = :type AND node_id = :id ORDER BY position", nodeType, id);
    std::vector<Delegate> delegates;
    for (DelegateRow row; reader.next(row);) {
        delegates.push_back(delegateOf(row));
    }
    return delegates;
}

std::vector<Delegate> readDelegates(int64_t nodeType, int64_t id)
{
    return inTransaction(Access::read, [&](soci::session& sql) { return readDelegates(sql, nodeType, id); });
}

std::vector<Delegate> delegatesInSnapshot(const ListingSnapshot& snapshot, int nodeType, int64_t id)
{
    const auto kind = snapshot.delegates.find(nodeType);
    if (kind == snapshot.delegates.end()) {
        return {};
    }
    const auto found = kind->second.find(id);
    return found == kind->second.end() ? std::vector<Delegate>() : found->second;
}

void listDelegates(int64_t id, int nodeType)
{
    const ListingSnapshot* pSnapshot = currentSnapshot();
    tListed = pSnapshot != nullptr ? delegatesInSnapshot(*pSnapshot, nodeType, id) : readDelegates(nodeType, id);
    for (size_t i = 1; i < tListed.size(); ++i) {
        tListed[i - 1].pNext = &tListed[i];
    }
}

using ExtraInfo = std::unordered_map<uint64_t, VLIBCString>;  // of accounts, by uid

void fillExtraInfo(Delegate* pHead, bool all, const ExtraInfo& extraInfo)
{
    for (Delegate* pItem = pHead; pItem != nullptr; pItem = pItem->pNext) {
        if (all || pItem->extraInfo.empty()) {
            const auto found = extraInfo.find(pItem->ugid);
            pItem->extraInfo = found == extraInfo.end() ? VLIBCString() : found->second;
        }
    }
}

// Returns the extra information of the accounts that the items name.
ExtraInfo readExtraInfo(soci::session& sql, const Delegate* pHead)
{
    ExtraInfo extraInfo;
    for (const Delegate* pItem = pHead; pItem != nullptr; pItem = pItem->pNext) {
        const auto uid = static_cast<int64_t>(pItem->ugid);
        AccountRow account;
        if (Reader<AccountRow>(sql, "", "WHERE uid = :uid", uid).next(account)) {
            extraInfo.emplace(pItem->ugid, extraInfoOf(account));
        }
    }
    return extraInfo;
}

// Returns the uids of the entries that have one; the others are refused later.
std::vector<int64_t> requestedUgids(const Json::Value& jDelegates)
{
    std::vector<int64_t> ugids;
    for (const Json::Value& jDelegate : jDelegates) {
        if (jDelegate.isObject() && jDelegate["ugid"].isInt64()) {
            ugids.push_back(jDelegate["ugid"].asInt64());
        }
    }
    return ugids;
}

// Returns the uids to store for "delegate" of a request; none for null.
std::vector<int64_t> checkedUgids(soci::session& sql, const Json::Value& jDelegates)
{
    if (jDelegates.isNull()) {
        return {};
    }
    const std::unordered_set<int64_t> known =
        valuesIn(sql, Kind<AccountRow>::kTable, "uid", requestedUgids(jDelegates));
    return delegateUgids(jDelegates, [&known](int64_t ugid) { return known.contains(ugid); });
}

// Returns whether the accounts are the node's delegates already, in this order.
bool areDelegates(soci::session& sql, int nodeType, int64_t id, const std::vector<int64_t>& ugids)
{
    const std::vector<Delegate> stored = readDelegates(sql, nodeType, id);
    return std::equal(stored.begin(), stored.end(), ugids.begin(), ugids.end(), [](const Delegate& item, int64_t ugid) {
        return item.userType == kDelegateUserType && item.ugid == static_cast<uint64_t>(ugid);
    });
}

// A call that sets the delegates of a node.
struct Request {
    int64_t id;
    int nodeType;
    const Json::Value& jRecord;
    bool absentClears;  // whether a record without "delegate" removes all of them
};

// Returns the uids to store, nothing when the node has them already. Throws Refusal or InvalidInput for a call that is
// refused.
std::optional<std::vector<int64_t>> delegatesToSet(soci::session& sql, const Rights& rights, const Request& request)
{
    const bool canHave = request.nodeType == VELQ_ZEM_TYPE_OU || request.nodeType == kServerType;
    require(canHave, EINVAL, "node_type: neither a group nor a server");
    rights.requireNode(request.nodeType, request.id);
    require(request.jRecord.isObject(), EINVAL, "record: not an object");
    requireExisting(sql, rights, request.nodeType, request.id);
    const Json::Value& jDelegates = request.jRecord["delegate"];
    if (jDelegates.isNull() && !request.absentClears) {
        return std::nullopt;
    }
    std::vector<int64_t> ugids = checkedUgids(sql, jDelegates);
    if (areDelegates(sql, request.nodeType, request.id, ugids)) {
        return std::nullopt;
    }
    return ugids;
}

template <typename R>
void recordDelegates(soci::session& sql, const Rights& rights, int64_t id, const std::vector<int64_t>& ugids)
{
    if (!isRecording()) {
        return;
    }
    R node;
    load(sql, id, node);
    std::vector<int64_t> before;
    for (const Delegate& item : readDelegates(sql, Kind<R>::kType, id)) {
        before.push_back(static_cast<int64_t>(item.ugid));
    }
    Change change = changeBetween(&node, &node);
    change.members.addDelegates(&before, &ugids);
    record(sql, actorOf(rights), change);
}

std::string replaceDelegates(soci::session& sql, const Request& request)
{
    const Rights rights(sql);
    const auto ugids = delegatesToSet(sql, rights, request);
    if (!ugids) {
        return "";
    }
    const bool isServer = request.nodeType == kServerType;
    (isServer ? recordDelegates<Server> : recordDelegates<Group>)(sql, rights, request.id, *ugids);
    change(sql, "DELETE FROM delegate WHERE node_type = :type AND node_id = :id", request.nodeType, request.id);
    Inserter<DelegateRow> inserter(sql);
    insertDelegates(inserter, request.nodeType, request.id, *ugids);
    inserter.flush();
    return changeLine(rights, isServer ? Kind<Server>::kName : Kind<Group>::kName, request.id, "delegate");
}

// Most calls change nothing, so a reading transaction comes first, which does not block writers.
int setDelegates(const Request& request)
{
    bool isToChange = false;
    const int result = toErrno([&] {
        isToChange = inTransaction(
            Access::read, [&](soci::session& sql) { return delegatesToSet(sql, Rights(sql), request).has_value(); });
    });
    if (result < 0 || !isToChange) {
        return result;
    }
    return commitChange([&](soci::session& sql) { return replaceDelegates(sql, request); });
}

}  // namespace
}  // namespace store

using namespace store;

int VELQZEMDelegateListByTarget(int64_t id, int nodeType, _tag_velq_zem_delegate_** ppHead, int* pCount)
{
    return toErrno([&] {
        requireArguments(ppHead);
        listDelegates(id, nodeType);
        *ppHead = tListed.empty() ? nullptr : tListed.data();
        if (pCount != nullptr) {
            *pCount = static_cast<int>(tListed.size());
        }
    });
}

int VELQDelegateUpdateExtraInfoList(_tag_velq_zem_delegate_* pHead, BOOL flag)
{
    const ListingSnapshot* pSnapshot = currentSnapshot();
    return toErrno([&] {
        if (pHead == nullptr) {
            return;
        }
        const bool all = flag != FALSE;
        if (pSnapshot != nullptr) {
            return fillExtraInfo(pHead, all, pSnapshot->extraInfo);
        }
        const auto read = [pHead](soci::session& sql) { return readExtraInfo(sql, pHead); };
        fillExtraInfo(pHead, all, inTransaction(Access::read, read));
    });
}

int VELQZEMDelegateItemGetUserType(int64_t* pUserType, const _tag_velq_zem_delegate_* pItem)
{
    return toErrno([&] {
        requireArguments(pUserType, pItem);
        *pUserType = pItem->userType;
    });
}

int VELQZEMDelegateItemGetUGID(uint64_t* pUgid, const _tag_velq_zem_delegate_* pItem)
{
    return toErrno([&] {
        requireArguments(pUgid, pItem);
        *pUgid = pItem->ugid;
    });
}

_tag_velq_zem_delegate_* VELQZEMDelegateNext(const _tag_velq_zem_delegate_* pItem)
{
    return pItem == nullptr ? nullptr : pItem->pNext;
}

int VELQZEMDelegateOverrideListByTarget(int64_t id, int nodeType, Json::Value& jRecord)
{
    return setDelegates({id, nodeType, jRecord, true});
}

int VELQZEMDelegateSetListByTarget(int64_t id, int nodeType, Json::Value& jRecord)
{
    return setDelegates({id, nodeType, jRecord, false});
}
