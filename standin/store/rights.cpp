// Delegation reaches down the tree: SQL walks up from the group in question, or down from what is delegated.
#include "standin/store/rights.h"

#include "platform/velq_core.h"
#include "platform/velq_zem.h"
#include "standin/store/statement.h"
#include "standin/store/store.h"
#include "standin/store/transaction.h"

namespace standin {
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

bool canManage(soci::session& sql, int64_t uid, int64_t id)
{
    const Role role = roleOf(sql, uid);
    return role == Role::administrator || (role == Role::delegate && number(sql, kDelegatedAbove, id, uid) > 0);
}

}  // namespace

const std::string kSeenGroups = "WITH RECURSIVE seen (id) AS (SELECT node_id FROM delegate WHERE " + kGroupOfAccount +
                                " UNION SELECT o.id FROM ou o JOIN seen s ON o.parent_id = s.id) ";

Role roleOf(soci::session& sql, int64_t uid)
{
    int64_t admin = 0;
    Statement statement(sql);
    if (!statement.in(uid).out(admin).prepare("SELECT admin FROM account WHERE uid = :uid").first()) {
        return Role::unknown;
    }
    return admin != 0 ? Role::administrator : Role::delegate;
}

}  // namespace standin

using namespace standin;

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    bool allowed = false;
    const bool answered = reading([&](soci::session& sql) { allowed = canManage(sql, uid, id); }) == 0;
    if (answered && allowed) {
        return 1;
    }
    if (answered) {
        errno = EACCES;
    }
    VLIBCErrSetEx(answered ? kErrorRefused : kErrorNoAnswer, "rights.cpp", __LINE__);
    return 0;
}
