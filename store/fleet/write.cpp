// A plan's way into the database. Foreign keys and unique names are checked statement by statement, so a row is there
// before others refer to it, and gone after; names that are given up are out of the way before others take them.
#include <algorithm>
#include <cstring>
#include <ctime>
#include <unordered_set>

#include "store/fleet/fleet.h"
#include "store/nodes/delegates.h"
#include "store/records/json_text.h"
#include "store/records/rows.h"

namespace store {
namespace {

using Ids = std::vector<int64_t>;

constexpr int64_t kNobody = UINT32_MAX;  // the uid of who cannot be determined: a file has no sender

// Executes a statement for all of the identifiers, a thousand at a time. query: up to the condition.
void changeAll(soci::session& sql, const std::string& query, const char* szColumn, const Ids& ids)
{
    for (const std::string& condition : conditionsFor(szColumn, ids)) {
        execute(sql, query + condition);
    }
}

template <typename R, typename IsWanted>
Ids idsOf(const Differences<R>& differences, IsWanted&& isWanted)
{
    Ids ids;
    for (const Difference<R>& difference : differences) {
        if (isWanted(difference)) {
            ids.push_back(idOf(difference.either().record));
        }
    }
    return ids;
}

template <typename R>
bool isDeleted(const Difference<R>& difference)
{
    return difference.pAfter == nullptr;
}

template <typename R>
void deleteRows(soci::session& sql, const Differences<R>& differences)
{
    changeAll(sql, std::string("DELETE FROM ") + Kind<R>::kTable + " WHERE ", Kind<R>::kFields[0].name,
              idsOf(differences, isDeleted<R>));
}

// Deletes the rows that a table has of these nodes.
template <typename R>
void deleteOfNodes(soci::session& sql, const char* szTable, const Ids& ids)
{
    const std::string type = std::to_string(Kind<R>::kType);
    changeAll(sql, std::string("DELETE FROM ") + szTable + " WHERE node_type = " + type + " AND ", "node_id", ids);
}

// Gives these records names that no record has or is to have: longer than any, with the identifier at their end.
template <typename R>
void vacateNames(soci::session& sql, const std::string& alsoSet, const Ids& ids, const Section<R>& after)
{
    if (ids.empty()) {
        return;
    }
    const std::string table = Kind<R>::kTable;
    const auto stored = number(sql, "SELECT MAX(LENGTH(name)) FROM " + table);
    size_t longest = static_cast<size_t>(stored);
    for (const Entry<R>& entry : after) {
        longest = std::max(longest, std::strlen(entry.record.name.c_str()));
    }
    const std::string identifier = Kind<R>::kFields[0].name;
    changeAll(sql,
              "UPDATE " + table + " SET " + alsoSet + "name = '" + std::string(longest + 1, 'x') + "' || CAST(" +
                  identifier + " AS TEXT) WHERE ",
              identifier.c_str(), ids);
}

void vacate(soci::session& sql, const Differences<AccountRow>& accounts, const Fleet& after)
{
    const auto isRenamed = [](const Difference<AccountRow>& difference) {
        return difference.changes(&AccountRow::name);
    };
    vacateNames(sql, "", idsOf(accounts, isRenamed), after.accounts);
}

// Groups that are renamed, moved or deleted wait below the root, where none holds on to another.
void vacate(soci::session& sql, const Differences<Group>& groups, const Fleet& after)
{
    const auto isLeaving = [](const Difference<Group>& difference) {
        return isDeleted(difference) || difference.changes(&Group::name) || difference.changes(&Group::parentId);
    };
    vacateNames(sql, "parent_id = 0, ", idsOf(groups, isLeaving), after.groups);
}

// The row of a record that is new or changed. What a file says of time and revision counts for a record that has none
// of its own yet: one that is new, and the root group as it was made.
template <typename R>
R rowOf(const Difference<R>& difference, int64_t now)
{
    R row = difference.pAfter->record;
    if constexpr (!std::is_same_v<R, AccountRow>) {
        const int64_t before = difference.pBefore == nullptr ? 0 : difference.pBefore->record.revision;
        row.revision = before == 0 && row.revision > 0 ? row.revision : before + 1;
        row.mtime = before == 0 && row.mtime > 0 ? row.mtime : now;
    }
    return row;
}

template <typename R>
void writeRows(soci::session& sql, const Differences<R>& differences, const std::function<void()>& step)
{
    const int64_t now = std::time(nullptr);
    Inserter<R> inserter(sql, orOverwrite<R>());
    for (const Difference<R>& difference : differences) {
        if (difference.pAfter != nullptr && (difference.pBefore == nullptr || difference.fields.any())) {
            inserter.insert(rowOf(difference, now));
        }
        step();
    }
    inserter.flush();
}

// The groups in an order in which each comes after its parent.
Differences<Group> downwards(const Differences<Group>& differences, const Fleet& after)
{
    const std::vector<int> depths = depthsOf(after.groups);
    const auto depthOf = [&](const Difference<Group>& difference) {
        return difference.pAfter == nullptr ? 0 : depths[static_cast<size_t>(difference.pAfter - after.groups.data())];
    };
    Differences<Group> ordered(differences);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&](const auto& one, const auto& other) { return depthOf(one) < depthOf(other); });
    return ordered;
}

// What a table still has of a node that is not there any more must not become that of a new one.
template <typename R>
void writeDelegates(soci::session& sql, const Differences<R>& differences)
{
    const auto isRewritten = [](const Difference<R>& difference) {
        return difference.delegates || difference.pBefore == nullptr || isDeleted(difference);
    };
    deleteOfNodes<R>(sql, "delegate", idsOf(differences, isRewritten));
    Inserter<DelegateRow> inserter(sql);
    for (const Difference<R>& difference : differences) {
        if (isRewritten(difference) && !isDeleted(difference)) {
            insertDelegates(inserter, Kind<R>::kType, difference.pAfter->record.id, difference.pAfter->delegates);
        }
    }
    inserter.flush();
}

// --- Notices: the nodes whose policies are others now are to fetch them anew, as after a change by a request.

using Policies = std::unordered_set<int64_t>;

template <typename R>
bool isMoved(const Difference<R>& difference)
{
    return difference.changes(&R::parentId) || difference.changes(&R::linkedGpo);
}

bool isBlocked(const Difference<Server>&)
{
    return false;
}

bool isBlocked(const Difference<Group>& difference)
{
    return difference.changes(&Group::blockInheritance);
}

template <typename R>
bool linksOne(const Entry<R>& entry, const Policies& policies)
{
    if (policies.empty() || entry.record.linkedGpo.empty()) {
        return false;
    }
    try {
        const Ids ids = parseLinkIds(entry.record.linkedGpo.c_str());
        return std::any_of(ids.begin(), ids.end(), [&](int64_t id) { return policies.contains(id); });
    } catch (const std::runtime_error&) {  // one that the store held before, damaged
        return false;
    }
}

template <typename R>
void noteFetches(soci::session& sql, const Differences<R>& differences, const Section<R>& after,
                 const Policies& policies)
{
    deleteOfNodes<R>(sql, "gpo_fetch", idsOf(differences, isDeleted<R>));
    Ids ids = idsOf(differences, [](const auto& difference) { return isMoved(difference) || isBlocked(difference); });
    for (const Entry<R>& entry : after) {
        if (linksOne(entry, policies)) {
            ids.push_back(entry.record.id);
        }
    }
    for (const std::string& condition : conditionsFor("id", ids)) {
        execute(sql, std::string("INSERT INTO gpo_fetch (node_type, node_id, uid, mtime) SELECT ") +
                         std::to_string(Kind<R>::kType) + ", id, " + std::to_string(kNobody) + ", " +
                         std::to_string(std::time(nullptr)) + " FROM " + Kind<R>::kTable + " WHERE " + condition +
                         " ON CONFLICT (node_type, node_id) DO UPDATE SET uid = excluded.uid, mtime = excluded.mtime");
    }
}

}  // namespace

void writePlan(soci::session& sql, const Plan& plan, const Fleet& after, const std::function<void()>& step)
{
    deleteRows(sql, plan.servers);
    deleteRows(sql, plan.policies);
    deleteRows(sql, plan.accounts);
    vacate(sql, plan.accounts, after);
    vacate(sql, plan.groups, after);
    writeRows(sql, plan.accounts, step);
    writeRows(sql, downwards(plan.groups, after), step);
    writeRows(sql, plan.policies, step);
    writeRows(sql, plan.servers, step);
    deleteRows(sql, plan.groups);
    writeDelegates(sql, plan.groups);
    writeDelegates(sql, plan.servers);
    const Ids ids = idsOf(plan.policies, [](const auto& policy) { return policy.changes(&Policy::setting); });
    const Policies policies(ids.begin(), ids.end());
    noteFetches(sql, plan.groups, after.groups, policies);
    noteFetches(sql, plan.servers, after.servers, policies);
    execute(sql,
            "UPDATE meta SET value = (SELECT MAX(id) FROM ou) WHERE name = 'last_ou' AND value <"
            " (SELECT MAX(id) FROM ou)");
}

}  // namespace store
