// Rights: an administrator manages everything, another account the groups delegated to it and all below them.
#include "standin/store/rights.h"

#include "platform/velq_zem.h"

namespace standin {

const char* const kSeenGroups =
    "WITH RECURSIVE seen (id) AS (SELECT node_id FROM delegate WHERE node_type = 2 AND user_type = 2 AND ugid = :uid"
    " UNION SELECT o.id FROM ou o JOIN seen s ON o.parent_id = s.id) ";

namespace {

constexpr int kRefused = 0x0D01;  // last-error codes of the right to manage a group
constexpr int kNoAnswer = 0x0D02;

const char* const kDelegatedAbove =
    "WITH RECURSIVE above (id) AS (SELECT id FROM ou WHERE id = :id"
    " UNION SELECT o.parent_id FROM ou o JOIN above a ON o.id = a.id) "
    "SELECT COUNT(*) FROM delegate d JOIN above a ON d.node_id = a.id"
    " WHERE d.node_type = 2 AND d.user_type = 2 AND d.ugid = :uid";

bool canManage(soci::session& sql, int64_t uid, int64_t id)
{
    const Role role = roleOf(sql, uid);
    return role == Role::administrator || (role == Role::delegate && number(sql, kDelegatedAbove, id, uid) > 0);
}

}  // namespace

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

int VELQZEMOuCanManagedByUid(uint32_t uid, int64_t id)
{
    bool allowed = false;
    const int result = standin::reading([&](soci::session& sql) { allowed = standin::canManage(sql, uid, id); });
    if (result == 0 && allowed) {
        return 1;
    }
    errno = result == 0 ? EACCES : errno;
    VLIBCErrSetEx(result == 0 ? standin::kRefused : standin::kNoAnswer, "rights.cpp", __LINE__);
    return 0;
}
