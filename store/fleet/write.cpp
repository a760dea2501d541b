// Writes a plan into the database. The database checks foreign keys and unique names with each statement, so a row is
// written before the rows that refer to it and deleted after them, and a name is freed before another record takes it.
#include "store/fleet/write.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <functional>

#include "store/fleet/check.h"
#include "store/records/delegates.h"
#include "store/records/link_rows.h"
#include "store/records/rows.h"

namespace store {
namespace {

using Ids = std::vector<int64_t>;

constexpr int64_t kUnknownSender = UINT32_MAX;  // uid in a fetch notice: no request asked for the fetch

// Executes a statement for all rows with these identifiers, in batches. query: the statement up to its condition.
void executeForIds(soci::session& sql, const std::string& query, const char* szColumn, const Ids& ids)
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
        if (std::invoke(isWanted, difference)) {
            ids.push_back(idOf(difference.record()));
        }
    }
    return ids;
}

template <typename R>
void deleteRows(soci::session& sql, const Differences<R>& differences)
{
    executeForIds(sql, std::string("DELETE FROM ") + Kind<R>::kTable + " WHERE ", Kind<R>::kFields[0].name,
                  idsOf(differences, &Difference<R>::isDeleted));
}

// Deletes the rows that belong to these nodes from another table.
template <typename R>
void deleteRowsOfNodes(soci::session& sql, const char* szTable, const Ids& ids)
{
    const std::string type = std::to_string(Kind<R>::kType);
    executeForIds(sql, std::string("DELETE FROM ") + szTable + " WHERE node_type = " + type + " AND ", "node_id", ids);
}

// Gives these records temporary names that no record has or will have: longer than any name, ending in the identifier.
// otherChanges: text of an UPDATE for further columns.
template <typename R>
void setTemporaryNames(soci::session& sql, const std::string& otherChanges, const Ids& ids, const Section<R>& after)
{
    if (ids.empty()) {
        return;
    }
    const std::string table = Kind<R>::kTable;
    auto longest = static_cast<size_t>(number(sql, "SELECT MAX(LENGTH(name)) FROM " + table));
    for (const Entry<R>& entry : after) {
        longest = std::max(longest, std::strlen(entry.record.name.c_str()));
    }
    const std::string identifier = Kind<R>::kFields[0].name;
    executeForIds(sql,
                  "UPDATE " + table + " SET " + otherChanges + "name = '" + std::string(longest + 1, 'x') +
                      "' || CAST(" + identifier + " AS TEXT) WHERE ",
                  identifier.c_str(), ids);
}

void freeNames(soci::session& sql, const Differences<AccountRow>& accounts, const Fleet& after)
{
    const auto isRenamed = [](const Difference<AccountRow>& difference) {
        return difference.changes(&AccountRow::name);
    };
    setTemporaryNames(sql, "", idsOf(accounts, isRenamed), after.accounts);
}

// Also moves these groups below the root: the database does not delete a group that is the parent of another.
void freeNames(soci::session& sql, const Differences<Group>& groups, const Fleet& after)
{
    const auto isNameFreed = [](const Difference<Group>& difference) {
        return difference.isDeleted() || difference.changes(&Group::name) || difference.changes(&Group::parentId);
    };
    setTemporaryNames(sql, "parent_id = 0, ", idsOf(groups, isNameFreed), after.groups);
}

// Returns the row of a record that is new or changed. The time and the revision of a file are used only when the stored
// record has none: when the record is new, or is the root group of a new store.
template <typename R>
R rowOf(const Difference<R>& difference, int64_t now)
{
    R row = difference.pAfter->record;
    if constexpr (!std::is_same_v<R, AccountRow>) {
        const int64_t before = difference.isNew() ? 0 : difference.pBefore->record.revision;
        row.revision = before == 0 && row.revision > 0 ? row.revision : nextRevision(before);
        row.mtime = before == 0 && row.mtime > 0 ? row.mtime : now;
    }
    return row;
}

template <typename R>
void writeRows(soci::session& sql, const Differences<R>& differences, const std::function<void()>& onRecord)
{
    const int64_t now = std::time(nullptr);
    Inserter<R> inserter(sql, orOverwrite<R>());
    for (const Difference<R>& difference : differences) {
        if (!difference.isDeleted() && (difference.isNew() || difference.changedFields.any())) {
            inserter.insert(rowOf(difference, now));
        }
        onRecord();
    }
    inserter.flush();
}

// Returns the groups in an order in which each comes after its parent.
Differences<Group> parentsFirst(const Differences<Group>& differences, const Fleet& after)
{
    const std::vector<int> depths = depthsOf(after.groups);
    const auto depthOf = [&](const Difference<Group>& difference) {
        return difference.isDeleted() ? 0 : depths[static_cast<size_t>(difference.pAfter - after.groups.data())];
    };
    Differences<Group> ordered(differences);
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&](const auto& one, const auto& other) { return depthOf(one) < depthOf(other); });
    return ordered;
}

// Clears the rows of new nodes, too: a damaged store may hold delegates of a node that did not exist.
template <typename R>
void writeDelegates(soci::session& sql, const Differences<R>& differences)
{
    const auto isRewritten = [](const Difference<R>& difference) {
        return difference.hasOtherDelegates || difference.isNew() || difference.isDeleted();
    };
    deleteRowsOfNodes<R>(sql, "delegate", idsOf(differences, isRewritten));
    Inserter<DelegateRow> inserter(sql);
    for (const Difference<R>& difference : differences) {
        if (isRewritten(difference) && !difference.isDeleted()) {
            insertDelegates(inserter, Kind<R>::kType, difference.pAfter->record.id, difference.pAfter->delegates);
        }
    }
    inserter.flush();
}

template <typename R>
void writeLinks(soci::session& sql, const Differences<R>& differences)
{
    const auto isRewritten = [](const Difference<R>& difference) {
        return difference.changes(&R::linkedGpo) || difference.isNew() || difference.isDeleted();
    };
    deleteRowsOfNodes<R>(sql, Kind<LinkRow>::kTable, idsOf(differences, isRewritten));
    Inserter<LinkRow> inserter(sql);
    for (const Difference<R>& difference : differences) {
        if (isRewritten(difference) && !difference.isDeleted()) {
            insertLinks(inserter, Kind<R>::kType, difference.pAfter->record.id, difference.pAfter->links);
        }
    }
    inserter.flush();
}

// --- Fetch notices: nodes to which other policies apply now must fetch them, as after a change by a request.

template <typename R>
bool changesPolicies(const Difference<R>& difference)
{
    if constexpr (std::is_same_v<R, Group>) {
        if (difference.changes(&Group::blockInheritance)) {
            return true;
        }
    }
    return difference.changes(&R::parentId) || difference.changes(&R::linkedGpo);
}

// changedPolicies: the policies with new settings; the nodes that link them must fetch them.
template <typename R>
void writeFetchNotices(soci::session& sql, const Differences<R>& differences, const Ids& changedPolicies)
{
    deleteRowsOfNodes<R>(sql, "gpo_fetch", idsOf(differences, &Difference<R>::isDeleted));
    Ids ids = idsOf(differences, changesPolicies<R>);
    for (const std::string& condition : conditionsFor("policy_id", changedPolicies)) {
        const auto linking =
            numbers(sql, "SELECT node_id FROM policy_link WHERE node_type = :type AND " + condition, Kind<R>::kType);
        ids.insert(ids.end(), linking.begin(), linking.end());
    }
    for (const std::string& condition : conditionsFor("id", ids)) {
        execute(sql, std::string("INSERT INTO gpo_fetch (node_type, node_id, uid, mtime) SELECT ") +
                         std::to_string(Kind<R>::kType) + ", id, " + std::to_string(kUnknownSender) + ", " +
                         std::to_string(std::time(nullptr)) + " FROM " + Kind<R>::kTable + " WHERE " + condition +
                         " ON CONFLICT (node_type, node_id) DO UPDATE SET uid = excluded.uid, mtime = excluded.mtime");
    }
}

}  // namespace

void writePlan(soci::session& sql, const Plan& plan, const Fleet& after, const std::function<void()>& onRecord)
{
    deleteRows(sql, plan.servers);
    deleteRows(sql, plan.policies);
    deleteRows(sql, plan.accounts);
    freeNames(sql, plan.accounts, after);
    freeNames(sql, plan.groups, after);
    writeRows(sql, plan.accounts, onRecord);
    writeRows(sql, parentsFirst(plan.groups, after), onRecord);
    writeRows(sql, plan.policies, onRecord);
    writeRows(sql, plan.servers, onRecord);
    deleteRows(sql, plan.groups);
    writeDelegates(sql, plan.groups);
    writeDelegates(sql, plan.servers);
    writeLinks(sql, plan.groups);
    writeLinks(sql, plan.servers);
    const Ids changedPolicies =
        idsOf(plan.policies, [](const auto& policy) { return policy.changes(&Policy::setting); });
    writeFetchNotices(sql, plan.groups, changedPolicies);
    writeFetchNotices(sql, plan.servers, changedPolicies);
    execute(sql,
            "UPDATE meta SET value = (SELECT MAX(id) FROM ou) WHERE name = 'last_ou' AND value <"
            " (SELECT MAX(id) FROM ou)");
}

}  // namespace store
