// Checks in the store before a record is written. All run inside the caller's transaction and throw what the wrappers
// of database.h turn into errno.
#pragma once

#include "standin/store/json_text.h"
#include "standin/store/rows.h"

namespace standin {

// Whether the kind's table holds that identifier; false for a kind without a table.
inline bool hasNode(soci::session& sql, int nodeType, int64_t id)
{
    const char* szTable = nodeType == Kind<Group>::type    ? Kind<Group>::table
                          : nodeType == Kind<Server>::type ? Kind<Server>::table
                          : nodeType == Kind<Policy>::type ? Kind<Policy>::table
                                                           : nullptr;
    return szTable != nullptr &&
           number(sql, std::string("SELECT COUNT(*) FROM ") + szTable + " WHERE id = :id", id) > 0;
}

// EINVAL for an empty name, a text that cannot be stored, JSON text that is none, and wrong policy links.
template <class R>
void checkRecord(soci::session& sql, const R& record)
{
    demand(!record.name.empty(), "name", "empty");
    for (const Field<R>& field : Kind<R>::fields) {
        const char* szText = field.text ? (record.*field.text).c_str() : "";
        demand(isPlainText(szText, szText + std::char_traits<char>::length(szText)), field.name, "not UTF-8");
        if (field.rule == Rule::json && *szText != '\0') {
            parseJson(szText);
        }
    }
    if (!record.linkedGpo.empty()) {
        checkLinks(linkIds(parseJson(record.linkedGpo.c_str())),
                   [&sql](int64_t id) { return hasNode(sql, kPolicyType, id); });
    }
}

// Checks that the record may take the place of the stored one: EAGAIN when that was changed since the record was
// loaded, ENOENT when there is no such parent group, EINVAL as above.
template <class R>
void checkReplacement(soci::session& sql, const R& record, const R& stored)
{
    require(record.revision == stored.revision, EAGAIN);
    require(hasNode(sql, VELQ_ZEM_TYPE_OU, record.parentId), ENOENT);
    checkRecord(sql, record);
}

// Writes the record, whose checks are done, over the stored one and gives it its new time and revision.
template <class R>
void replace(soci::session& sql, R& record)
{
    record.mtime = now();
    ++record.revision;
    update(sql, record);
}

}  // namespace standin
