// Counts what an account manages, for each change that adds to it: most stores have no quota, and a count that is kept
// would have to follow every move and every change of a delegate.
#include "store/rules/quota.h"

#include <cerrno>
#include <string>

#include "store/base/errors.h"
#include "store/base/thread_state.h"
#include "store/db/database.h"
#include "store/records/records.h"
#include "store/sql/statement.h"

namespace store {
namespace {

Quota gQuota;

// Returns SQL for the number of bytes of a row's texts.
template <typename R>
std::string bytesOfRow()
{
    std::string sum = "0";
    for (const Field<R>& field : Kind<R>::kFields) {
        if (field.isText()) {
            const std::string column = '"' + std::string(field.name) + '"';
            sum += isPostgres() ? " + OCTET_LENGTH(" + column + ")" : " + LENGTH(CAST(" + column + " AS BLOB))";
        }
    }
    return sum;
}

template <typename R>
int64_t managedBytes(soci::session& sql, int64_t uid, const std::string& column)
{
    return number(sql,
                  kVisibleGroups + "SELECT COALESCE(SUM(" + bytesOfRow<R>() + "), 0) FROM " + Kind<R>::kTable +
                      " WHERE " + column + " IN (SELECT id FROM visible)",
                  uid);
}

}  // namespace

void checkQuota(soci::session& sql, const Rights& rights, int64_t newGroups, int64_t addedBytes)
{
    if (rights.isUnrestricted() || (newGroups <= 0 && addedBytes <= 0)) {
        return;
    }
    const int64_t uid = *threadState().actingUid;
    const auto require = [](bool isAllowed, const std::string& what) {
        if (!isAllowed) {
            throw Refusal(EDQUOT, Reason::quota, "", "what you manage would have more than " + what);
        }
    };
    if (gQuota.groups > 0 && newGroups > 0) {
        const int64_t groups = number(sql, kVisibleGroups + "SELECT COUNT(*) FROM visible", uid);
        require(groups + newGroups <= gQuota.groups, std::to_string(gQuota.groups) + " groups");
    }
    if (gQuota.bytes > 0 && addedBytes > 0) {
        const int64_t bytes = managedBytes<Group>(sql, uid, "id") + managedBytes<Server>(sql, uid, "parent_id");
        require(bytes + addedBytes <= gQuota.bytes, std::to_string(gQuota.bytes) + " bytes of text");
    }
}

void setQuota(const Quota& quota)
{
    gQuota = quota;
}

}  // namespace store
