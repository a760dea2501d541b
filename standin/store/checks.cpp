// A record's texts are checked by its kind's table of fields; what they refer to, by SQL.
#include "standin/store/checks.h"

#include "standin/store/errors.h"
#include "standin/store/json_text.h"
#include "standin/store/records.h"
#include "standin/store/statement.h"
#include "standin/store/utf8.h"

namespace standin {
namespace {

template <typename R>
void checkText(const Field<R>& field, const char* szText)
{
    demand(isPlainText(szText), field.name, "not UTF-8");
    if (field.rule == Rule::json && *szText != '\0') {
        parseJson(szText);
    }
}

}  // namespace

bool hasNode(soci::session& sql, int nodeType, int64_t id)
{
    const char* szTable = nodeType == Kind<Group>::kType    ? Kind<Group>::kTable
                          : nodeType == Kind<Server>::kType ? Kind<Server>::kTable
                          : nodeType == Kind<Policy>::kType ? Kind<Policy>::kTable
                                                            : nullptr;
    return szTable != nullptr &&
           number(sql, std::string("SELECT COUNT(*) FROM ") + szTable + " WHERE id = :id", id) > 0;
}

template <typename R>
void checkRecord(soci::session& sql, const R& record)
{
    demand(!record.name.empty(), "name", "empty");
    for (const Field<R>& field : Kind<R>::kFields) {
        if (const auto* pText = std::get_if<VLIBCString R::*>(&field.member)) {
            checkText(field, (record.**pText).c_str());
        }
    }
    if (!record.linkedGpo.empty()) {
        const std::vector<int64_t> ids = parseLinkIds(record.linkedGpo.c_str());
        const std::unordered_set<int64_t> known = valuesIn(sql, Kind<Policy>::kTable, "id", ids);
        checkLinks(ids, [&known](int64_t id) { return known.contains(id); });
    }
}

template <typename R>
void checkReplacement(soci::session& sql, const R& record, const R& stored)
{
    require(record.revision == stored.revision, EAGAIN);
    require(hasNode(sql, VELQ_ZEM_TYPE_OU, record.parentId), ENOENT);
    checkRecord(sql, record);
}

template void checkRecord(soci::session&, const Group&);
template void checkReplacement(soci::session&, const Group&, const Group&);
template void checkReplacement(soci::session&, const Server&, const Server&);

}  // namespace standin
