// Reads and writes the rows of links, and derives them from the texts of a store that had none.
#include "store/records/link_rows.h"

#include <stdexcept>
#include <string>

#include "store/records/policy_links.h"

namespace store {
namespace {

template <typename R>
void fillFrom(soci::session& sql)
{
    std::vector<std::pair<int64_t, std::vector<int64_t>>> nodes;
    Reader<R> reader(sql, "", "WHERE linked_gpo <> ''");
    for (R record; reader.next(record);) {
        try {
            nodes.emplace_back(record.id, parseLinkIds(record.linkedGpo.c_str()));
        } catch (const std::runtime_error&) {  // not links, so it links nothing
        }
    }
    Inserter<LinkRow> inserter(sql, " ON CONFLICT DO NOTHING");  // a damaged text may name a policy twice
    for (const auto& [id, policyIds] : nodes) {
        insertLinks(inserter, Kind<R>::kType, id, policyIds);
    }
    inserter.flush();
}

}  // namespace

void insertLinks(Inserter<LinkRow>& inserter, int nodeType, int64_t id, const std::vector<int64_t>& policyIds)
{
    for (const int64_t policyId : policyIds) {
        inserter.insert({nodeType, id, policyId});
    }
}

std::unordered_set<int64_t> linksOf(soci::session& sql, int nodeType, int64_t id)
{
    return numbers(sql, "SELECT policy_id FROM policy_link WHERE node_type = :type AND node_id = :id", nodeType, id);
}

void writeLinkChange(soci::session& sql, int nodeType, int64_t id, const LinkChange& change)
{
    for (const std::string& condition : conditionsFor("policy_id", change.removed)) {
        store::change(sql, "DELETE FROM policy_link WHERE node_type = :type AND node_id = :id AND " + condition,
                      nodeType, id);
    }
    Inserter<LinkRow> inserter(sql);
    insertLinks(inserter, nodeType, id, change.added);
    inserter.flush();
}

void fillLinkRows(soci::session& sql)
{
    fillFrom<Group>(sql);
    fillFrom<Server>(sql);
}

}  // namespace store
