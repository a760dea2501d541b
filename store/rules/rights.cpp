// Decides the rights of accounts by SQL. An account may manage a group if that group or an ancestor is delegated to it,
// and it sees the subtrees of its delegated groups.
#include "store/rules/rights.h"

#include <algorithm>
#include <ctime>

#include "platform/velq_core.h"
#include "platform/velq_zem.h"
#include "store/db/transaction.h"
#include "store/records/policy_links.h"
#include "store/records/records.h"
#include "store/rules/acting_account.h"
#include "store/sql/statement.h"
#include "store/store.h"

namespace store {
namespace {

constexpr int kErrorRefused = 0x0D01;   // last-error code: the account may not manage the group, or is not known
constexpr int kErrorNoAnswer = 0x0D02;  // last-error code: the store could not answer, errno says why

// Condition on a row of "delegate": it delegates a group to the account whose uid is the one parameter.
const std::string kGroupOfAccount = "node_type = " + std::to_string(VELQ_ZEM_TYPE_OU) +
                                    " AND user_type = " + std::to_string(kDelegateUserType) + " AND ugid = :uid";

// Counts the delegations of a group (first parameter) and of its ancestors to an account (second parameter).
const std::string kCountDelegations =
    "WITH RECURSIVE ancestors (id) AS (SELECT id FROM ou WHERE id = :id"
    " UNION SELECT o.parent_id FROM ou o JOIN ancestors a ON o.id = a.id) "
    "SELECT COUNT(*) FROM delegate d JOIN ancestors a ON d.node_id = a.id WHERE " +
    kGroupOfAccount;

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
    const bool isManageable = number(m_sql, kCountDelegations, groupId, m_uid) > 0;
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
    int64_t groupId = 0;
    Statement statement(m_sql);
    const bool found = statement.in(id).out(groupId).prepare("SELECT parent_id FROM kx WHERE id = :id").first();
    if (!found || !mayManage(groupId)) {
        throw notManageable(Kind<Server>::kName, id);
    }
}

std::unordered_set<int64_t> Rights::visiblePolicies(const std::vector<int64_t>& ids) const
{
    std::unordered_set<int64_t> existing = valuesIn(m_sql, Kind<Policy>::kTable, "id", ids);
    if (isUnrestricted() || existing.empty()) {
        return existing;
    }
    std::unordered_set<int64_t> visible =
        numbers(m_sql, kVisibleGroups + "SELECT id FROM gpo WHERE parent_id IN (SELECT id FROM visible)", m_uid);
    if (std::all_of(existing.begin(), existing.end(), [&](int64_t id) { return visible.contains(id); })) {
        return existing;
    }
    visible.merge(policiesLinkedByVisibleNodes());
    std::erase_if(existing, [&visible](int64_t id) { return !visible.contains(id); });
    return existing;
}

std::unordered_set<int64_t> Rights::policiesLinkedByVisibleNodes() const
{
    std::unordered_set<int64_t> linked;
    for (const char* szCondition : {"ou WHERE id", "kx WHERE parent_id"}) {
        std::string links;
        Statement statement(m_sql);
        statement.in(m_uid).out(links).prepare(kVisibleGroups + "SELECT linked_gpo FROM " + szCondition +
                                               " IN (SELECT id FROM visible) AND linked_gpo <> ''");
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
