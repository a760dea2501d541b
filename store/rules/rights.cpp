// Decides the rights of accounts by SQL. An account may manage a group if that group or an ancestor is delegated to it,
// and it sees the subtrees of its delegated groups.
#include "store/rules/rights.h"

#include <algorithm>
#include <ctime>

#include "platform/velq_core.h"
#include "platform/velq_zem.h"
#include "store/db/transaction.h"
#include "store/records/records.h"
#include "store/rules/acting_account.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

constexpr int64_t kNoGroup = -1;
constexpr int kErrorRefused = 0x0D01;   // last-error code: the account may not manage the group, or is not known
constexpr int kErrorNoAnswer = 0x0D02;  // last-error code: the store could not answer, errno says why

// Condition on a row of "delegate": it delegates a group to the account whose uid is the one parameter.
const std::string kGroupOfAccount = "node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) +
                                    " AND user_type = " + std::to_string(kDelegateUserType) + " AND ugid = :uid";

// Counts the steps from a group (first parameter) up to the first one that is delegated to an account (second
// parameter). More than kMaxGroupDepth steps, and one for the group itself, mean that there is none. A group without
// such an ancestor and a missing one take equally many steps, so that the time does not tell which groups exist.
const std::string kCountSteps =
    "WITH RECURSIVE step (id, number) AS (SELECT COALESCE((SELECT id FROM ou WHERE id = :id), -1), 0"
    " UNION ALL SELECT COALESCE((SELECT o.parent_id FROM ou o WHERE o.id = s.id), -1), s.number + 1 FROM step s"
    " WHERE s.number <= " +
    std::to_string(kMaxGroupDepth) + " AND NOT EXISTS (SELECT 1 FROM delegate d WHERE d.node_id = s.id AND " +
    kGroupOfAccount + ")) SELECT COUNT(*) FROM step";

// Selects the policies that the visible groups, and the servers in them, link.
const std::string kLinkedByVisible =
    "SELECT policy_id FROM policy_link WHERE node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) +
    " AND node_id IN (SELECT id FROM visible) UNION SELECT policy_id FROM policy_link"
    " WHERE node_type = " +
    std::to_string(kServerType) + " AND node_id IN (SELECT id FROM kx WHERE parent_id IN (SELECT id FROM visible))";

// Returns the account's role, and sets the name if the account exists.
Role readAccount(soci::session& sql, int64_t uid, std::string& name)
{
    int64_t admin = 0;
    Statement statement(sql);
    statement.in(uid).out(admin).out(name).prepare("SELECT admin, name FROM account WHERE uid = :uid");
    if (!statement.first()) {
        return Role::unknown;
    }
    return admin != 0 ? Role::administrator : Role::delegate;
}

// Does the same for the acting account, when the request has a token. Throws Refusal ECANCELED when that is not valid.
Role readAccountOfToken(soci::session& sql, int64_t uid, const std::string& tokenHash, std::string& name)
{
    const int64_t now = std::time(nullptr);
    int64_t admin = 0;
    Statement statement(sql);
    statement.in(uid).in(tokenHash).in(now).out(admin).out(name);
    statement.prepare(
        "SELECT a.admin, a.name FROM account a JOIN token t ON t.uid = a.uid"
        " WHERE a.uid = :uid AND t.hash = :hash AND (t.expires = 0 OR t.expires > :now)");
    if (!statement.first()) {
        throw stopped("the token was revoked or has expired");
    }
    return admin != 0 ? Role::administrator : Role::delegate;
}

Role readActingAccount(soci::session& sql, std::string& name)
{
    const ThreadState& state = threadState();
    if (!state.actingUid) {
        return Role::administrator;
    }
    const bool hasToken = state.pWatch != nullptr && !state.pWatch->tokenHash.empty();
    return hasToken ? readAccountOfToken(sql, *state.actingUid, state.pWatch->tokenHash, name)
                    : readAccount(sql, *state.actingUid, name);
}

Refusal notManageable(const char* szKind, int64_t id, const char* szMember = "")
{
    return Refusal(EACCES, Reason::notPermitted, szMember,
                   std::string(szKind) + " " + std::to_string(id) + " is not yours to manage");
}

}  // namespace

const std::string kVisibleGroups = "WITH RECURSIVE visible (id) AS (SELECT node_id FROM delegate WHERE " +
                                   kGroupOfAccount +
                                   " UNION SELECT o.id FROM ou o JOIN visible v ON o.parent_id = v.id) ";

Rights::Rights(soci::session& sql)
    : m_sql(sql),
      m_uid(threadState().actingUid ? int64_t{*threadState().actingUid} : -1),
      m_role(readActingAccount(sql, m_name))
{
}

Rights::Rights(soci::session& sql, std::optional<int64_t> uid)
    : m_sql(sql), m_uid(uid.value_or(-1)), m_role(uid ? readAccount(sql, *uid, m_name) : Role::administrator)
{
}

Role Rights::role() const
{
    return m_role;
}

const std::string& Rights::accountName() const
{
    return m_name;
}

bool Rights::isUnrestricted() const
{
    return m_role == Role::administrator;
}

bool Rights::managesAnything() const
{
    return isUnrestricted() || number(m_sql, "SELECT COUNT(*) FROM delegate WHERE " + kGroupOfAccount, m_uid) > 0;
}

bool Rights::mayManage(int64_t groupId) const
{
    if (m_role != Role::delegate) {
        return isUnrestricted();
    }
    const auto known = m_manageable.find(groupId);
    if (known != m_manageable.end()) {
        return known->second;
    }
    const bool isManageable = number(m_sql, kCountSteps, groupId, m_uid) <= kMaxGroupDepth + 1;
    m_manageable.emplace(groupId, isManageable);
    return isManageable;
}

void Rights::requireGroup(int64_t groupId, const char* szMember) const
{
    if (!mayManage(groupId)) {
        throw notManageable(Kind<Group>::kName, groupId, szMember);
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
    int64_t groupId = kNoGroup;
    Statement(m_sql).in(id).out(groupId).prepare("SELECT parent_id FROM kx WHERE id = :id").first();
    if (!mayManage(groupId)) {
        throw notManageable(Kind<Server>::kName, id);
    }
}

// For a restricted account, the time depends on what it sees and not on the policies asked for, so that it does not
// tell which others exist.
std::unordered_set<int64_t> Rights::visiblePolicies(const std::vector<int64_t>& ids) const
{
    std::unordered_set<int64_t> existing = valuesIn(m_sql, Kind<Policy>::kTable, "id", ids);
    if (isUnrestricted() || ids.empty()) {
        return existing;
    }
    std::unordered_set<int64_t> visible =
        numbers(m_sql, kVisibleGroups + "SELECT id FROM gpo WHERE parent_id IN (SELECT id FROM visible)", m_uid);
    const auto isVisible = [&visible](int64_t id) { return visible.contains(id); };
    if (!std::all_of(ids.begin(), ids.end(), isVisible)) {
        visible.merge(numbers(m_sql, kVisibleGroups + kLinkedByVisible, m_uid));
    }
    std::erase_if(existing, [&](int64_t id) { return !isVisible(id); });
    return existing;
}

}  // namespace store

using namespace store;

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    const auto check = [&](soci::session& sql) {
        requireGoingOn();
        Rights(sql, uid).requireGroup(id);
    };
    if (toErrno([&] { inTransaction(Access::read, check); }) == 0) {
        return 1;
    }
    VLIBCErrSetEx(errno == EACCES ? kErrorRefused : kErrorNoAnswer, "rights.cpp", __LINE__);
    return 0;
}
