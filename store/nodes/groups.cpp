// Loads, changes, creates and deletes groups, and checks that they stay a tree of limited depth.
#include <ctime>
#include <map>
#include <vector>

#include "store/history/recorder.h"
#include "store/records/rows.h"
#include "store/rules/change.h"
#include "store/rules/checks.h"

namespace store {
namespace {

// Bounds the walks along a damaged tree, which may have cycles.
const std::string kMaxSteps = std::to_string(2 * kMaxGroupDepth);

// Text before a statement that defines "subtree": the group of the parameter and those below it, with their depth below
// it. The root is its own parent.
const std::string kSubtree =
    "WITH RECURSIVE subtree (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :top"
    " UNION ALL SELECT o.id, s.depth + 1 FROM ou o JOIN subtree s ON o.parent_id = s.id"
    " WHERE o.id <> 0 AND s.depth < " +
    kMaxSteps + ") ";

// Text before a statement that defines "ancestors": the group of the parameter and those above it up to the root, with
// their distance from it.
const std::string kAncestors =
    "WITH RECURSIVE ancestors (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :bottom"
    " UNION ALL SELECT o.parent_id, a.depth + 1 FROM ou o JOIN ancestors a ON o.id = a.id"
    " WHERE a.id <> 0 AND a.depth < " +
    kMaxSteps + ") ";

// The path from a group to the root.
struct Ancestry {
    int64_t groups = 0;           // on the path, the group and the root included; 0: the group does not exist
    int64_t differentGroups = 0;  // fewer than groups when the path runs in a cycle
    int64_t depth = 0;            // steps to the root
    int64_t matches = 0;          // how often the group searched for is on the path
};

Ancestry ancestryOf(soci::session& sql, int64_t id, int64_t searchedId = -1)
{
    Ancestry ancestry;
    Statement statement(sql);
    statement.in(id).in(searchedId);
    statement.out(ancestry.groups).out(ancestry.differentGroups).out(ancestry.depth).out(ancestry.matches);
    statement.prepare(kAncestors +
                      "SELECT COUNT(*), COUNT(DISTINCT id), COALESCE(MAX(depth), 0), COUNT(CASE WHEN id = :searched"
                      " THEN 1 END) FROM ancestors");
    statement.first();
    return ancestry;
}

// Throws Refusal EIO when the group's path to the root runs in a cycle, which only a change by direct
// SQL can cause. Otherwise no group below it is part of a cycle either.
void requireNoCycle(soci::session& sql, const Ancestry& ancestry, int64_t id)
{
    if (ancestry.differentGroups == ancestry.groups) {
        return;
    }
    const int64_t repeated = number(
        sql, kAncestors + "SELECT MIN(id) FROM (SELECT id FROM ancestors GROUP BY id HAVING COUNT(*) > 1) AS repeated",
        id);
    throw Refusal(EIO, "the store is damaged: group " + std::to_string(repeated) + " is its own ancestor");
}

// Checks that a subtree of that height, 1 for a single group, fits below the parent, whose ancestry is given.
void checkDepth(soci::session& sql, const Ancestry& ancestry, int64_t parentId, int64_t height)
{
    requireNoCycle(sql, ancestry, parentId);
    requireValid(ancestry.depth + height <= kMaxGroupDepth, "parent_id",
                 "more than " + std::to_string(kMaxGroupDepth) + " groups below one another", Reason::tooDeep);
}

// Returns the words with which a refusal names the parent of a group. They contain its name only if the account may
// manage the parent.
std::string describeParent(soci::session& sql, const Rights& rights, int64_t parentId)
{
    Group parent;
    load(sql, parentId, parent);
    if (parentId == 0) {
        return "the root group";
    }
    return rights.mayManage(parentId) ? std::string("the group ") + parent.name.c_str() : "the group above";
}

void checkSiblings(soci::session& sql, const Rights& rights, const Group& group)
{
    const std::string name = group.name.c_str();
    const int64_t same =
        number(sql, "SELECT COUNT(*) FROM ou WHERE parent_id = :p AND name = :n AND id <> 0 AND id <> :id",
               group.parentId, name, group.id);
    if (same != 0) {
        throw Refusal(EEXIST, Reason::duplicate, "name",
                      describeParent(sql, rights, group.parentId) + " has a sub-group of that name");
    }
}

void checkMove(soci::session& sql, const Group& group)
{
    requireValid(group.id != 0, "parent_id", "the root group stays where it is", Reason::notPermitted);
    requireNoCycle(sql, ancestryOf(sql, group.id), group.id);
    const Ancestry ancestry = ancestryOf(sql, group.parentId, group.id);
    requireValid(ancestry.matches == 0, "parent_id", "the group itself or one below it", Reason::cycle);
    const int64_t height = number(sql, kSubtree + "SELECT MAX(depth) + 1 FROM subtree", group.id);
    checkDepth(sql, ancestry, group.parentId, height);
}

std::string replaceGroup(soci::session& sql, Group& group, const CheckedLinks& checked)
{
    const Rights rights(sql);
    rights.requireGroup(group.id);
    Group stored;
    load(sql, group.id, stored);
    const LinkChange links = checkReplacement(sql, rights, group, checked, stored);
    if (group.parentId != stored.parentId) {
        checkMove(sql, group);
    }
    if (group.id != 0) {
        checkSiblings(sql, rights, group);
    }
    if (hasSameFields(group, stored)) {
        return "";
    }
    const std::string changed = replace(sql, rights, group, stored);
    writeLinkChange(sql, Kind<Group>::kType, group.id, links);
    return changeLine(rights, Kind<Group>::kName, group.id, changed);
}

std::string createGroup(soci::session& sql, Group& group, const CheckedLinks& checked)
{
    const Rights rights(sql);
    rights.requireGroup(group.parentId, "parent_id");
    group.id = -1;
    const Ancestry ancestry = ancestryOf(sql, group.parentId);
    if (ancestry.groups == 0) {
        throw noSuchParent(group.parentId);
    }
    const LinkChange links = checkRecord(sql, rights, group, checked, Group());
    checkSiblings(sql, rights, group);
    checkDepth(sql, ancestry, group.parentId, 1);
    group.id = number(sql, "UPDATE meta SET value = value + 1 WHERE name = 'last_ou' RETURNING value");
    group.mtime = std::time(nullptr);
    group.revision = 1;
    Inserter<Group> inserter(sql);
    inserter.insert(group);
    inserter.flush();
    writeLinkChange(sql, Kind<Group>::kType, group.id, links);
    record(sql, actorOf(rights), changeBetween<Group>(nullptr, &group));
    return changeLine(rights, Kind<Group>::kName, group.id, "created");
}

using Groups = std::map<int64_t, Group>;
using DelegateLists = std::map<int64_t, std::vector<int64_t>>;  // uids by group

// Returns the groups that the table "ancestors" or "subtree" lists for the group. with: the text that defines it.
Groups readGroups(soci::session& sql, const std::string& with, const std::string& table, int64_t id)
{
    Groups groups;
    Reader<Group> reader(sql, with, "WHERE id IN (SELECT id FROM " + table + ")", id);
    for (Group group; reader.next(group);) {
        groups.emplace(group.id, group);
    }
    return groups;
}

DelegateLists readDelegatesBelow(soci::session& sql, int64_t id)
{
    DelegateLists lists;
    Reader<DelegateRow> reader(sql, kSubtree,
                               "WHERE node_type = :type AND node_id IN (SELECT id FROM subtree)"
                               " ORDER BY node_id, position",
                               id, Kind<Group>::kType);
    for (DelegateRow row; reader.next(row);) {
        lists[row.nodeId].push_back(row.ugid);
    }
    return lists;
}

// Records that the servers or policies of the subtree move to the root.
template <typename R>
void recordMoves(soci::session& sql, BulkRecorder& recorder, GroupPaths& paths, int64_t id)
{
    Reader<R> reader(sql, kSubtree, "WHERE parent_id IN (SELECT id FROM subtree) ORDER BY id", id);
    for (R stored; reader.next(stored);) {
        R moved(stored);
        moved.parentId = 0;
        recorder.add(changeBetween(&stored, &moved), paths);
    }
}

// Records what deleteGroups() is about to do.
void recordDeletion(soci::session& sql, const Rights& rights, int64_t id)
{
    if (!isRecording()) {
        return;
    }
    Groups groups = readGroups(sql, kAncestors, "ancestors", id);
    const Groups below = readGroups(sql, kSubtree, "subtree", id);
    groups.insert(below.begin(), below.end());
    GroupPaths paths([&groups](int64_t groupId) {
        const auto found = groups.find(groupId);
        return found == groups.end() ? nullptr : &found->second;
    });
    DelegateLists delegates = readDelegatesBelow(sql, id);
    BulkRecorder recorder(sql, actorOf(rights));
    for (const auto& [groupId, group] : below) {
        Change change = changeBetween<Group>(&group, nullptr);
        change.members.addDelegates(&delegates[groupId], nullptr);
        recorder.add(change, paths);
    }
    recordMoves<Policy>(sql, recorder, paths, id);
    recordMoves<Server>(sql, recorder, paths, id);
    recorder.flush();
}

std::string deleteGroups(soci::session& sql, int64_t id)
{
    const Rights rights(sql);
    rights.requireGroup(id);
    require(id != 0, EINVAL, "the root group cannot be deleted");
    const Ancestry ancestry = ancestryOf(sql, id);
    if (ancestry.groups == 0) {
        throw noSuch<Group>(id);
    }
    requireNoCycle(sql, ancestry, id);
    recordDeletion(sql, rights, id);
    const std::string inSubtree = "IN (SELECT id FROM subtree)";
    for (const char* szTable : {"kx", "gpo"}) {
        change(sql,
               kSubtree + "UPDATE " + szTable + " SET parent_id = 0, revision = " + kNextRevision +
                   ", mtime = :now WHERE parent_id " + inSubtree,
               id, std::time(nullptr));
    }
    const std::string ofGroups = " WHERE node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) + " AND node_id " + inSubtree;
    for (const char* szTable : {"delegate", "gpo_fetch", "policy_link"}) {
        change(sql, kSubtree + "DELETE FROM " + szTable + ofGroups, id);
    }
    change(sql, kSubtree + "DELETE FROM ou WHERE id " + inSubtree, id);
    return changeLine(rights, Kind<Group>::kName, id, "deleted");
}

}  // namespace
}  // namespace store

using namespace store;

int VELQZEMOuGet(int64_t id, _tag_velq_zem_ou_* pOu)
{
    return readRecord(id, pOu);
}

int VELQZEMOuSet(_tag_velq_zem_ou_* pOu)
{
    return commitChange(pOu, replaceGroup);
}

int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu)
{
    return commitChange(pOu, createGroup);
}

int VELQZEMOuDeleteAllByID(int64_t id)
{
    return commitChange([id](soci::session& sql) { return deleteGroups(sql, id); });
}

int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu)
{
    return toErrno([&] {
        requireArguments(pId, pOu);
        *pId = pOu->id;
    });
}
