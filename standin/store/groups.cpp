// Groups are loaded, changed, created and deleted here; the checks of the tree that they form are made in SQL.
#include <ctime>

#include "standin/store/checks.h"
#include "standin/store/rows.h"

namespace standin {
namespace {

// The groups below and including the one of the parameter, with their depth below it. The root is its own parent.
const char* const kBelow =
    "WITH RECURSIVE below (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :top"
    " UNION ALL SELECT o.id, b.depth + 1 FROM ou o JOIN below b ON o.parent_id = b.id WHERE o.id <> 0) ";

// The group of the parameter and those above it up to the root, with their distance from it.
const char* const kAbove =
    "WITH RECURSIVE above (id, depth) AS (SELECT id, 0 FROM ou WHERE id = :bottom"
    " UNION ALL SELECT o.parent_id, a.depth + 1 FROM ou o JOIN above a ON o.id = a.id WHERE a.id <> 0) ";

// levels: of groups that come to hang there, the topmost included.
void checkDepth(soci::session& sql, int64_t parentId, int64_t levels)
{
    const int64_t depth = number(sql, std::string(kAbove) + "SELECT MAX(depth) FROM above", parentId);
    require(depth + levels <= kMaxGroupDepth, EINVAL);
}

void checkSiblings(soci::session& sql, const Group& group)
{
    const std::string name = group.name.c_str();
    const int64_t same =
        number(sql, "SELECT COUNT(*) FROM ou WHERE parent_id = :p AND name = :n AND id <> 0 AND id <> :id",
               group.parentId, name, group.id);
    require(same == 0, EEXIST);
}

void checkMove(soci::session& sql, const Group& group)
{
    require(group.id != 0, EINVAL);
    const int64_t above =
        number(sql, std::string(kAbove) + "SELECT COUNT(*) FROM above WHERE id = :id", group.parentId, group.id);
    require(above == 0, EINVAL);
    const int64_t height = number(sql, std::string(kBelow) + "SELECT MAX(depth) FROM below", group.id);
    checkDepth(sql, group.parentId, height + 1);
}

void replaceGroup(soci::session& sql, Group& group)
{
    Group stored;
    load(sql, group.id, stored);
    checkReplacement(sql, group, stored);
    if (group.parentId != stored.parentId) {
        checkMove(sql, group);
    }
    if (group.id != 0) {
        checkSiblings(sql, group);
    }
    replace(sql, group);
}

void createGroup(soci::session& sql, Group& group)
{
    group.id = -1;
    require(hasNode(sql, VELQ_ZEM_TYPE_OU, group.parentId), ENOENT);
    checkRecord(sql, group);
    checkSiblings(sql, group);
    checkDepth(sql, group.parentId, 1);
    execute(sql, "UPDATE meta SET value = value + 1 WHERE name = 'last_ou'");
    group.id = number(sql, "SELECT value FROM meta WHERE name = 'last_ou'");
    group.mtime = std::time(nullptr);
    group.revision = 1;
    Inserter<Group>(sql).insert(group);
}

void deleteGroups(soci::session& sql, int64_t id)
{
    require(id != 0, EINVAL);
    require(hasNode(sql, VELQ_ZEM_TYPE_OU, id), ENOENT);
    const std::string below = "IN (SELECT id FROM below)";
    const std::string ofGroup = " WHERE node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) + " AND node_id " + below;
    for (const char* szTable : {"kx", "gpo"}) {
        change(sql,
               std::string(kBelow) + "UPDATE " + szTable +
                   " SET parent_id = 0, revision = revision + 1, mtime = :now WHERE parent_id " + below,
               id, std::time(nullptr));
    }
    for (const char* szTable : {"delegate", "gpo_fetch"}) {
        change(sql, std::string(kBelow) + "DELETE FROM " + szTable + ofGroup, id);
    }
    change(sql, std::string(kBelow) + "DELETE FROM ou WHERE id " + below, id);
}

}  // namespace
}  // namespace standin

using namespace standin;

int VELQZEMOuGet(int64_t id, _tag_velq_zem_ou_* pOu)
{
    return readRecord(id, pOu);
}

int VELQZEMOuSet(_tag_velq_zem_ou_* pOu)
{
    return changeRecord(pOu, replaceGroup);
}

int VELQZEMOuCreate(_tag_velq_zem_ou_* pOu)
{
    return changeRecord(pOu, createGroup);
}

int VELQZEMOuDeleteAllByID(int64_t id)
{
    return writing([id](soci::session& sql) { deleteGroups(sql, id); });
}

int VELQZEMOuItemGetID(int64_t* pId, const _tag_velq_zem_ou_* pOu)
{
    return guarded([&] {
        require(pId != nullptr && pOu != nullptr, EINVAL);
        *pId = pOu->id;
    });
}
