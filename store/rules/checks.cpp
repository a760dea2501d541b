// A record's texts are checked by its kind's table of fields; what they refer to, by SQL.
#include "store/rules/checks.h"

#include <cstring>

#include "store/records/policy_links.h"
#include "store/records/record_checks.h"
#include "store/records/rows.h"

namespace store {
namespace {

// The policies that the stored record links. A text that is damaged links none, and may be written over.
std::vector<int64_t> storedLinks(const VLIBCString& linkedGpo)
{
    try {
        return linkedGpo.empty() ? std::vector<int64_t>() : parseLinkIds(linkedGpo.c_str());
    } catch (const std::runtime_error&) {
        return {};
    }
}

void checkLinkChange(const Rights& rights, VLIBCString& linkedGpo, const VLIBCString& stored)
{
    if (linkedGpo.empty() || std::strcmp(linkedGpo.c_str(), stored.c_str()) == 0) {
        return;
    }
    const PolicyLinks links = storableLinks(linkedGpo);
    const std::vector<int64_t>& ids = links.ids;
    linkedGpo = links.text;
    const std::vector<int64_t> before = storedLinks(stored);
    std::unordered_set<int64_t> known(before.begin(), before.end());
    std::vector<int64_t> added;
    std::copy_if(ids.begin(), ids.end(), std::back_inserter(added), [&](int64_t id) { return !known.contains(id); });
    known.merge(rights.seenPolicies(added));
    checkLinks(
        ids, [&known](int64_t id) { return known.contains(id); }, rights.isUnrestricted() ? EINVAL : EACCES);
}

template <typename R>
bool isThere(soci::session& sql, int64_t id)
{
    return number(sql, std::string("SELECT COUNT(*) FROM ") + Kind<R>::kTable + " WHERE id = :id", id) != 0;
}

template <typename R>
void requireRow(soci::session& sql, int64_t id)
{
    if (!isThere<R>(sql, id)) {
        throw noSuch<R>(id);
    }
}

template <typename R>
void checkParent(soci::session& sql, const Rights& rights, const R& record, const R& stored)
{
    if (record.parentId == stored.parentId) {
        return;
    }
    rights.requireGroup(record.parentId, "parent_id");
    if (!isThere<Group>(sql, record.parentId)) {
        throw noSuchParent(record.parentId);
    }
}

}  // namespace

void requireExisting(soci::session& sql, int nodeType, int64_t id)
{
    if (nodeType == Kind<Group>::kType) {
        return requireRow<Group>(sql, id);
    }
    require(nodeType == Kind<Server>::kType, EINVAL, "node_type: neither a group nor a server");
    requireRow<Server>(sql, id);
}

Refusal noSuchParent(int64_t id)
{
    return Refusal(ENOENT, std::string("parent_id: ") + noSuch<Group>(id).what());
}

template <typename R>
void checkRecord(const Rights& rights, R& record, const R& stored)
{
    checkTexts(record);
    checkLinkChange(rights, record.linkedGpo, stored.linkedGpo);
}

template <typename R>
void checkReplacement(soci::session& sql, const Rights& rights, R& record, const R& stored)
{
    if (record.revision != stored.revision) {
        throw changedSinceRead();
    }
    checkParent(sql, rights, record, stored);
    checkRecord(rights, record, stored);
}

template void checkRecord(const Rights&, Group&, const Group&);
template void checkReplacement(soci::session&, const Rights&, Group&, const Group&);
template void checkReplacement(soci::session&, const Rights&, Server&, const Server&);

}  // namespace store
