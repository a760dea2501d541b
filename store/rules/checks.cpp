// Checks a record's revision, parent and links against the store.
#include "store/rules/checks.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <variant>

#include "store/base/visible_text.h"
#include "store/records/policy_links.h"
#include "store/records/rows.h"
#include "store/rules/quota.h"

namespace store {
namespace {

// Checks the policies that a node is to link. before: those that it links.
LinkChange checkNewLinks(const Rights& rights, const std::vector<int64_t>& ids, std::unordered_set<int64_t> before)
{
    LinkChange change;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(change.added),
                 [&before](int64_t id) { return !before.contains(id); });
    const std::unordered_set<int64_t> seen = rights.visiblePolicies(change.added);
    const int errnoOfUnknown = rights.isUnrestricted() ? EINVAL : EACCES;
    checkLinks(
        ids, [&](int64_t id) { return before.contains(id) || seen.contains(id); }, errnoOfUnknown);
    for (const int64_t id : ids) {
        before.erase(id);
    }
    change.removed = {before.begin(), before.end()};
    return change;
}

// Returns whether a group or server exists that the account may manage. A restricted account may manage only existing
// ones, so the database is asked only for an unrestricted account.
template <typename R>
bool exists(soci::session& sql, const Rights& rights, int64_t id)
{
    return !rights.isUnrestricted() ||
           number(sql, std::string("SELECT COUNT(*) FROM ") + Kind<R>::kTable + " WHERE id = :id", id) != 0;
}

template <typename R>
void requireRow(soci::session& sql, const Rights& rights, int64_t id)
{
    if (!exists<R>(sql, rights, id)) {
        throw noSuch<R>(id);
    }
}

template <typename R>
int64_t bytesOfTexts(const R& record)
{
    size_t bytes = 0;
    for (const Field<R>& field : Kind<R>::kFields) {
        if (field.isText()) {
            bytes += std::strlen((record.*std::get<VLIBCString R::*>(field.member)).c_str());
        }
    }
    return static_cast<int64_t>(bytes);
}

template <typename R>
void checkParent(soci::session& sql, const Rights& rights, const R& record, const R& stored)
{
    if (record.parentId == stored.parentId) {
        return;
    }
    rights.requireGroup(record.parentId, "parent_id");
    if (!exists<Group>(sql, rights, record.parentId)) {
        throw noSuchParent(record.parentId);
    }
}

}  // namespace

void requireExisting(soci::session& sql, const Rights& rights, int nodeType, int64_t id)
{
    if (nodeType == Kind<Group>::kType) {
        requireRow<Group>(sql, rights, id);
    } else {
        requireRow<Server>(sql, rights, id);
    }
}

Refusal noSuchParent(int64_t id)
{
    return noSuch<Group>(id, "parent_id");
}

template <typename R>
LinkChange checkRecord(soci::session& sql, const Rights& rights, R& record, const CheckedLinks& checked,
                       const R& stored)
{
    // A store may hold such a name from before it was refused.
    const bool isSameName = std::strcmp(record.name.c_str(), stored.name.c_str()) == 0;
    requireValid(isSameName || !isBlank(record.name.c_str()), "name", "only blanks", Reason::missing);
    const bool hasNewLinks = std::strcmp(record.linkedGpo.c_str(), stored.linkedGpo.c_str()) != 0;
    if (hasNewLinks && checked.error != nullptr) {
        std::rethrow_exception(checked.error);
    }
    if (hasNewLinks) {
        record.linkedGpo = checked.links.text;
    }
    checkLengths(record, stored, checked.links.ids.size());
    const bool isNewGroup = std::is_same_v<R, Group> && stored.id < 0;
    checkQuota(sql, rights, isNewGroup, bytesOfTexts(record) - bytesOfTexts(stored));
    if (!hasNewLinks) {
        return {};
    }
    return checkNewLinks(rights, checked.links.ids, linksOf(sql, Kind<R>::kType, stored.id));
}

template <typename R>
LinkChange checkReplacement(soci::session& sql, const Rights& rights, R& record, const CheckedLinks& checked,
                            const R& stored)
{
    if (record.revision != stored.revision) {
        throw changedSinceRead();
    }
    checkParent(sql, rights, record, stored);
    return checkRecord(sql, rights, record, checked, stored);
}

template LinkChange checkRecord(soci::session&, const Rights&, Group&, const CheckedLinks&, const Group&);
template LinkChange checkReplacement(soci::session&, const Rights&, Group&, const CheckedLinks&, const Group&);
template LinkChange checkReplacement(soci::session&, const Rights&, Server&, const CheckedLinks&, const Server&);

}  // namespace store
