// The fleet loader: checks a whole fleet, then stores it in one transaction. What is wrong is told with its place in
// the fleet.
#include <ctime>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "standin/store/delegates.h"
#include "standin/store/json_text.h"
#include "standin/store/rows.h"

namespace standin {
namespace {

constexpr int64_t kHighestId = INT64_MAX / 2;  // leaves room to count on from
constexpr int64_t kHighestUid = UINT32_MAX - 1;

struct Fleet {
    std::vector<AccountRow> accounts;
    std::vector<Group> groups;
    std::vector<Policy> policies;
    std::vector<Server> servers;
    std::vector<std::vector<int64_t>> groupDelegates;  // uids, for each group and server
    std::vector<std::vector<int64_t>> serverDelegates;
    std::unordered_set<int64_t> uids;
    std::unordered_set<int64_t> policyIds;
    std::unordered_map<int64_t, size_t> groupIndex;  // by identifier
};

// Runs the check of one record and puts its place into the text of what it throws.
template <typename Check>
void at(const char* szSection, size_t index, Check&& check)
{
    try {
        check();
    } catch (const BadInput& bad) {
        throw std::runtime_error(std::string(szSection) + "[" + std::to_string(index) + "]." + bad.what());
    }
}

// Reads the records of a section; check(jItem, record) does what is special to its kind.
template <typename R, typename Check>
void readSection(const Json::Value& jFleet, const char* szSection, std::vector<R>& records, Check&& check)
{
    const Json::Value& jSection = jFleet[szSection];
    demand(jSection.isNull() || jSection.isArray(), szSection, "not an array");
    records.resize(jSection.size());
    for (Json::ArrayIndex i = 0; i < jSection.size(); ++i) {
        demand(jSection[i].isObject(), std::string(szSection) + "[" + std::to_string(i) + "]", "not an object");
        at(szSection, i, [&] {
            layMembers(jSection[i], records[i]);
            demand(!records[i].name.empty(), "name", "missing or empty");
            check(jSection[i], records[i]);
        });
    }
}

void readAccounts(const Json::Value& jFleet, Fleet& fleet)
{
    std::unordered_set<std::string> names;
    readSection(jFleet, "accounts", fleet.accounts, [&](const Json::Value&, const AccountRow& account) {
        demand(account.uid >= 0 && account.uid <= kHighestUid, "uid", "missing or not from 0 to 4294967294");
        demand(fleet.uids.insert(account.uid).second, "uid", "an account before has it too");
        demand(names.insert(account.name.c_str()).second, "name", "an account before has it too");
    });
}

// What groups, policies and servers have in common.
template <typename R>
void checkNode(const Json::Value& jItem, R& record, bool isNew)
{
    demand(record.id >= 1 && record.id <= kHighestId, "id", "missing or not from 1 to 2^62 - 1");
    demand(isNew, "id", "a record of the kind before has it too");
    demand(!jItem["parent_id"].isNull(), "parent_id", "missing");
    checkName(record.name.c_str());
    record.mtime = std::time(nullptr);
    record.revision = 1;
}

// The delegates of a node, once its policy links are checked.
template <typename R>
std::vector<int64_t> readRelations(const Json::Value& jItem, const R& record, const Fleet& fleet)
{
    if (!record.linkedGpo.empty()) {
        checkLinks(linkIds(jItem["linked_gpo"]), [&](int64_t id) { return fleet.policyIds.contains(id); });
    }
    if (jItem["delegate"].isNull()) {
        return {};
    }
    return delegateUgids(jItem["delegate"], [&](int64_t ugid) { return fleet.uids.contains(ugid); });
}

void readNodes(const Json::Value& jFleet, Fleet& fleet)
{
    readSection(jFleet, "policies", fleet.policies, [&](const Json::Value& jItem, Policy& policy) {
        checkNode(jItem, policy, fleet.policyIds.insert(policy.id).second);
        if (!policy.setting.empty()) {
            settingVersion(jItem["setting"]);
        }
    });
    readSection(jFleet, "groups", fleet.groups, [&](const Json::Value& jItem, Group& group) {
        checkNode(jItem, group, fleet.groupIndex.emplace(group.id, fleet.groupIndex.size()).second);
        fleet.groupDelegates.push_back(readRelations(jItem, group, fleet));
    });
    std::unordered_set<int64_t> serverIds;
    readSection(jFleet, "servers", fleet.servers, [&](const Json::Value& jItem, Server& server) {
        checkNode(jItem, server, serverIds.insert(server.id).second);
        fleet.serverDelegates.push_back(readRelations(jItem, server, fleet));
    });
}

template <typename R>
void checkParents(const char* szSection, const std::vector<R>& records, const Fleet& fleet)
{
    for (size_t i = 0; i < records.size(); ++i) {
        const int64_t parentId = records[i].parentId;
        at(szSection, i, [&] {
            demand(parentId == 0 || fleet.groupIndex.contains(parentId), "parent_id",
                   "no group " + std::to_string(parentId));
        });
    }
}

void checkSiblingNames(const Fleet& fleet)
{
    std::set<std::pair<int64_t, std::string>> names;
    for (size_t i = 0; i < fleet.groups.size(); ++i) {
        const Group& group = fleet.groups[i];
        at("groups", i, [&] {
            demand(names.emplace(group.parentId, group.name.c_str()).second, "name", "a sibling before has it too");
        });
    }
}

void checkDepths(const Fleet& fleet)
{
    const std::string tooDeep =
        "more than " + std::to_string(kMaxGroupDepth) + " groups below one another, or a circle";
    for (size_t i = 0; i < fleet.groups.size(); ++i) {
        const Group& group = fleet.groups[i];
        int level = 1;
        const auto parentOf = [&fleet](int64_t id) { return fleet.groups[fleet.groupIndex.at(id)].parentId; };
        at("groups", i, [&] {
            for (int64_t id = group.parentId; id != 0; id = parentOf(id)) {
                demand(id != group.id, "parent_id", "leads round in a circle");
                demand(++level <= kMaxGroupDepth, "parent_id", tooDeep);
            }
        });
    }
}

template <typename R>
void storeRecords(soci::session& sql, const std::vector<R>& records, const std::function<void()>& step)
{
    Inserter<R> inserter(sql);
    for (const R& record : records) {
        inserter.insert(record);
        step();
    }
}

template <typename R>
void storeDelegates(soci::session& sql, const std::vector<R>& records, const std::vector<std::vector<int64_t>>& lists)
{
    Inserter<DelegateRow> inserter(sql);
    for (size_t i = 0; i < records.size(); ++i) {
        insertDelegates(inserter, Kind<R>::kType, records[i].id, lists[i]);
    }
}

void storeFleet(soci::session& sql, const Fleet& fleet, const std::function<void()>& step)
{
    storeRecords(sql, fleet.accounts, step);
    storeRecords(sql, fleet.policies, step);
    storeRecords(sql, fleet.groups, step);
    storeRecords(sql, fleet.servers, step);
    storeDelegates(sql, fleet.groups, fleet.groupDelegates);
    storeDelegates(sql, fleet.servers, fleet.serverDelegates);
    execute(sql,
            "UPDATE meta SET value = (SELECT MAX(id) FROM ou) WHERE name = 'last_ou' AND value <"
            " (SELECT MAX(id) FROM ou)");
}

// The fleet, once it is checked.
Fleet readFleet(const Json::Value& jFleet)
{
    demand(jFleet.isObject(), "fleet", "not an object");
    Fleet fleet;
    readAccounts(jFleet, fleet);
    readNodes(jFleet, fleet);
    checkParents("groups", fleet.groups, fleet);
    checkParents("policies", fleet.policies, fleet);
    checkParents("servers", fleet.servers, fleet);
    checkSiblingNames(fleet);
    checkDepths(fleet);
    return fleet;
}

}  // namespace

void loadFleet(const Json::Value& jFleet, const std::function<void(size_t, size_t)>& progress)
{
    const Fleet fleet = readFleet(jFleet);
    const auto store = [&](soci::session& sql) {
        const int64_t held = number(sql,
                                    "SELECT (SELECT COUNT(*) FROM account) + (SELECT COUNT(*) FROM gpo)"
                                    " + (SELECT COUNT(*) FROM kx) + (SELECT COUNT(*) FROM ou WHERE id <> 0)");
        if (held != 0) {
            throw std::runtime_error("the store holds records already; a fleet is loaded into an empty one");
        }
        const size_t total = fleet.accounts.size() + fleet.policies.size() + fleet.groups.size() + fleet.servers.size();
        size_t done = 0;
        storeFleet(sql, fleet, [&] {
            constexpr size_t kReportEvery = 1000;
            ++done;
            if (progress && (done % kReportEvery == 0 || done == total)) {
                progress(done, total);
            }
        });
    };
    explained([&] { transacted(Access::write, store); });
}

}  // namespace standin
