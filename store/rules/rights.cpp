// Delegation reaches down the tree: SQL walks up from the group in question, or down from what is delegated.
#include "store/rules/rights.h"

#include <algorithm>

#include "platform/velq_core.h"
#include "platform/velq_zem.h"
#include "store/db/statement.h"
#include "store/db/transaction.h"
#include "store/records/policy_links.h"
#include "store/records/records.h"
#include "store/store.h"

namespace store {
namespace {

constexpr int kErrorRefused = 0x0D01;   // last-error code: the account may not manage the group, or is not known
constexpr int kErrorNoAnswer = 0x0D02;  // last-error code: the store could not answer, errno says why

// Condition on a row of "delegate": a group is delegated to the account with the uid that is its one parameter.
const std::string kGroupOfAccount = "node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) +
                                    " AND user_type = " + std::to_string(kDelegateUserType) + " AND ugid = :uid";

// Counts the delegations to an account of the group of the first parameter and of those above it.
const std::string kDelegatedAbove =
    "WITH RECURSIVE above (id) AS (SELECT id FROM ou WHERE id = :id"
    " UNION SELECT o.parent_id FROM ou o JOIN above a ON o.id = a.id) "
    "SELECT COUNT(*) FROM delegate d JOIN above a ON d.node_id = a.id WHERE " +
    kGroupOfAccount;

bool canManage(soci::session& sql, Role role, int64_t uid, int64_t id)
{
    return role == Role::administrator || (role == Role::delegate && number(sql, kDelegatedAbove, id, uid) > 0);
}

// The account's standing and its name.
Role readAccount(soci::session& sql, int64_t uid, std::string& name)
{
    int64_t admin = 0;
    Statement statement(sql);
    statement.in(uid).out(admin).out(name).prepare("SELECT admin, name FROM account WHERE uid = :uid");
    return !statement.first() ? Role::unknown : admin != 0 ? Role::administrator : Role::delegate;
}

std::string notYours(const char* szKind, int64_t id)
{
    return std::string(szKind) + " " + std::to_string(id) + " is not yours to manage";
}

}  // namespace

const std::string kSeenGroups = "WITH RECURSIVE seen (id) AS (SELECT node_id FROM delegate WHERE " + kGroupOfAccount +
                                " UNION SELECT o.id FROM ou o JOIN seen s ON o.parent_id = s.id) ";

Role roleOf(soci::session& sql, int64_t uid)
{
    std::string name;
    return readAccount(sql, uid, name);
}

Rights::Rights(soci::session& sql) : m_sql(sql)
{
    if (threadState().actingUid) {
        m_uid = *threadState().actingUid;
        m_role = readAccount(sql, m_uid, m_name);
    }
}

const std::string& Rights::accountName() const
{
    return m_name;
}

bool Rights::isUnrestricted() const
{
    return m_role == Role::administrator;
}

bool Rights::mayManage(int64_t groupId) const
{
    return canManage(m_sql, m_role, m_uid, groupId);
}

void Rights::requireGroup(int64_t groupId, const char* szMember) const
{
    if (!mayManage(groupId)) {
        throw Refusal(
            EACCES, (szMember == nullptr ? "" : std::string(szMember) + ": ") + notYours(Kind<Group>::kName, groupId));
    }
}

void Rights::requireNode(int nodeType, int64_t id) const
{
    if (nodeType == Kind<Group>::kType) {
        return requireGroup(id);
    }
    if (isUnrestricted()) {
        return;
    }
    int64_t groupId = 0;
    Statement statement(m_sql);
    const bool found = statement.in(id).out(groupId).prepare("SELECT parent_id FROM kx WHERE id = :id").first();
    if (!found || !mayManage(groupId)) {
        throw Refusal(EACCES, notYours(Kind<Server>::kName, id));
    }
}

std::unordered_set<int64_t> Rights::seenPolicies(const std::vector<int64_t>& ids) const
{
    std::unordered_set<int64_t> seen = valuesIn(m_sql, Kind<Policy>::kTable, "id", ids);
    if (isUnrestricted() || seen.empty()) {
        return seen;
    }
    std::unordered_set<int64_t> placed =
        numbers(m_sql, kSeenGroups + "SELECT id FROM gpo WHERE parent_id IN (SELECT id FROM seen)", m_uid);
    if (std::all_of(seen.begin(), seen.end(), [&](int64_t id) { return placed.contains(id); })) {
        return seen;
    }
    placed.merge(linkedWhereSeen());
    std::erase_if(seen, [&placed](int64_t id) { return !placed.contains(id); });
    return seen;
}

std::unordered_set<int64_t> Rights::linkedWhereSeen() const
{
    std::unordered_set<int64_t> linked;
    for (const char* szFrom : {"ou WHERE id", "kx WHERE parent_id"}) {
        std::string links;
        Statement statement(m_sql);
        statement.in(m_uid).out(links).prepare(kSeenGroups + "SELECT linked_gpo FROM " + szFrom +
                                               " IN (SELECT id FROM seen) AND linked_gpo <> ''");
        for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
            const std::vector<int64_t> ids = parseLinkIds(links.c_str());
            linked.insert(ids.begin(), ids.end());
        }
    }
    return linked;
}

}  // namespace store

using namespace store;

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    const int result = toErrno([&] {
        inTransaction(Access::read, [&](soci::session& sql) {
            if (!canManage(sql, roleOf(sql, uid), uid, id)) {
                throw Refusal(EACCES, notYours(Kind<Group>::kName, id));
            }
        });
    });
    if (result == 0) {
        return 1;
    }
    VLIBCErrSetEx(errno == EACCES ? kErrorRefused : kErrorNoAnswer, "rights.cpp", __LINE__);
    return 0;
}
