// Groups are loaded, changed, created and deleted here; the checks of the tree that they form are made in SQL.
#include <ctime>

#include "store/records/rows.h"
#include "store/rules/change.h"
#include "store/rules/checks.h"

namespace store {
namespace {

// A walk that goes on for longer than any sound tree allows meets a damaged one, and ends all the same.
const std::string kFarthest = std::to_string(2 * kMaxGroupDepth);

// The groups below and including the one of the parameter, with their depth below it. The root is its own parent.
const std::string kBelow =
    "WITH RECURSIVE below (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :top"
    " UNION ALL SELECT o.id, b.depth + 1 FROM ou o JOIN below b ON o.parent_id = b.id WHERE o.id <> 0 AND b.depth < " +
    kFarthest + ") ";

// The group of the parameter and those above it up to the root, with their distance from it.
const std::string kAbove =
    "WITH RECURSIVE above (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :bottom"
    " UNION ALL SELECT o.parent_id, a.depth + 1 FROM ou o JOIN above a ON o.id = a.id WHERE a.id <> 0 AND a.depth < " +
    kFarthest + ") ";

// The way up from a group to the root.
struct Ancestry {
    int64_t groups = 0;     // on it, the group and the root included; 0: there is no such group
    int64_t different = 0;  // fewer when it leads round in a circle
    int64_t depth = 0;      // steps to the root
    int64_t passes = 0;     // how often it passes the group that was asked for
};

Ancestry ancestryOf(soci::session& sql, int64_t id, int64_t passing = -1)
{
    Ancestry above;
    Statement statement(sql);
    statement.in(id).in(passing);
    statement.out(above.groups).out(above.different).out(above.depth).out(above.passes);
    statement.prepare(kAbove +
                      "SELECT COUNT(*), COUNT(DISTINCT id), COALESCE(MAX(depth), 0), COUNT(CASE WHEN id = :passing"
                      " THEN 1 END) FROM above");
    statement.first();
    return above;
}

// EIO when the way up from the group, which someone has changed behind the store's back, leads round in a circle. Then
// none of those below is part of a circle either.
void requireSound(soci::session& sql, const Ancestry& above, int64_t id)
{
    if (above.different == above.groups) {
        return;
    }
    const int64_t repeated = number(
        sql, kAbove + "SELECT MIN(id) FROM (SELECT id FROM above GROUP BY id HAVING COUNT(*) > 1) AS repeated", id);
    throw Refusal(EIO, "the store is damaged: group " + std::to_string(repeated) + " is its own ancestor");
}

// above: the way up from the parent; levels: of groups that come to hang there, the topmost included.
void checkDepth(soci::session& sql, const Ancestry& above, int64_t parentId, int64_t levels)
{
    requireSound(sql, above, parentId);
    requireValid(above.depth + levels <= kMaxGroupDepth, "parent_id",
                 "more than " + std::to_string(kMaxGroupDepth) + " groups below one another");
}

// The refusal tells the parent's name only to who manages that.
void checkSiblings(soci::session& sql, const Rights& rights, const Group& group)
{
    const std::string name = group.name.c_str();
    const int64_t same =
        number(sql, "SELECT COUNT(*) FROM ou WHERE parent_id = :p AND name = :n AND id <> 0 AND id <> :id",
               group.parentId, name, group.id);
    if (same == 0) {
        return;
    }
    Group parent;
    load(sql, group.parentId, parent);
    const std::string place = group.parentId == 0                ? "the root group"
                              : rights.mayManage(group.parentId) ? std::string("the group ") + parent.name.c_str()
                                                                 : "the group above";
    throw Refusal(EEXIST, "name: " + place + " has a sub-group of that name");
}

void checkMove(soci::session& sql, const Group& group)
{
    requireValid(group.id != 0, "parent_id", "the root group stays where it is");
    requireSound(sql, ancestryOf(sql, group.id), group.id);
    const Ancestry above = ancestryOf(sql, group.parentId, group.id);
    requireValid(above.passes == 0, "parent_id", "the group itself or one below it");
    const int64_t height = number(sql, kBelow + "SELECT MAX(depth) FROM below", group.id);
    checkDepth(sql, above, group.parentId, height + 1);
}

std::string replaceGroup(soci::session& sql, Group& group)
{
    const Rights rights(sql);
    rights.requireGroup(group.id);
    Group stored;
    load(sql, group.id, stored);
    checkReplacement(sql, rights, group, stored);
    if (group.parentId != stored.parentId) {
        checkMove(sql, group);
    }
    if (group.id != 0) {
        checkSiblings(sql, rights, group);
    }
    replace(sql, group, stored);
    return changeLine(rights, Kind<Group>::kName, group.id, changedMembers(stored, group));
}

std::string createGroup(soci::session& sql, Group& group)
{
    const Rights rights(sql);
    rights.requireGroup(group.parentId, "parent_id");
    group.id = -1;
    const Ancestry above = ancestryOf(sql, group.parentId);
    if (above.groups == 0) {
        throw noSuchParent(group.parentId);
    }
    checkRecord(rights, group, Group());
    checkSiblings(sql, rights, group);
    checkDepth(sql, above, group.parentId, 1);
    group.id = number(sql, "UPDATE meta SET value = value + 1 WHERE name = 'last_ou' RETURNING value");
    group.mtime = std::time(nullptr);
    group.revision = 1;
    Inserter<Group> inserter(sql);
    inserter.insert(group);
    inserter.flush();
    return changeLine(rights, Kind<Group>::kName, group.id, "created");
}

std::string deleteGroups(soci::session& sql, int64_t id)
{
    const Rights rights(sql);
    rights.requireGroup(id);
    require(id != 0, EINVAL, "the root group cannot be deleted");
    const Ancestry above = ancestryOf(sql, id);
    if (above.groups == 0) {
        throw noSuch<Group>(id);
    }
    requireSound(sql, above, id);
    const std::string below = "IN (SELECT id FROM below)";
    const std::string ofGroup = " WHERE node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) + " AND node_id " + below;
    for (const char* szTable : {"kx", "gpo"}) {
        change(sql,
               kBelow + "UPDATE " + szTable +
                   " SET parent_id = 0, revision = revision + 1, mtime = :now WHERE parent_id " + below,
               id, std::time(nullptr));
    }
    for (const char* szTable : {"delegate", "gpo_fetch"}) {
        change(sql, kBelow + "DELETE FROM " + szTable + ofGroup, id);
    }
    change(sql, kBelow + "DELETE FROM ou WHERE id " + below, id);
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
