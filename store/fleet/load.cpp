// Reads the stored fleet from the database and merges it with that of a file.
#include "store/fleet/load.h"

#include <iterator>

#include "store/records/rows.h"

namespace store {
namespace {

constexpr int64_t kNotAnAccount = -1;  // the uid for a delegate that is no account

template <typename R>
void loadRecords(soci::session& sql, Section<R>& section)
{
    Reader<R> reader(sql, "", std::string("ORDER BY ") + Kind<R>::kFields[0].name);
    for (Entry<R> entry; reader.next(entry.record);) {
        section.push_back(entry);
    }
}

// Gives the nodes their delegates. Both nodes and rows are in the order of the node identifiers; rows of missing nodes
// are skipped.
template <typename R>
void loadDelegates(soci::session& sql, Section<R>& section)
{
    const int64_t type = Kind<R>::kType;
    Reader<DelegateRow> reader(sql, "", "WHERE node_type = :type ORDER BY node_id, position", type);
    auto entry = section.begin();
    for (DelegateRow row; reader.next(row);) {
        while (entry != section.end() && entry->record.id < row.nodeId) {
            ++entry;
        }
        if (entry != section.end() && entry->record.id == row.nodeId) {
            entry->delegates.push_back(row.userType == kDelegateUserType ? row.ugid : kNotAnAccount);
        }
    }
}

template <typename R>
Section<R> mergeSections(const Section<R>& file, const Section<R>& stored)
{
    Section<R> merged;
    merged.reserve(std::max(file.size(), stored.size()));
    std::set_union(file.begin(), file.end(), stored.begin(), stored.end(), std::back_inserter(merged), hasLowerId<R>);
    return merged;
}

}  // namespace

Fleet loadFleet(soci::session& sql)
{
    Fleet fleet;
    loadRecords(sql, fleet.accounts);
    loadRecords(sql, fleet.groups);
    loadRecords(sql, fleet.policies);
    loadRecords(sql, fleet.servers);
    loadDelegates(sql, fleet.groups);
    loadDelegates(sql, fleet.servers);
    fleet.lastGroup = number(sql, "SELECT value FROM meta WHERE name = 'last_ou'");
    return fleet;
}

Fleet newFleet()
{
    Fleet fleet;
    Group& root = fleet.groups.emplace_back().record;
    root.id = 0;
    root.name = "root";
    return fleet;
}

Fleet mergeFleets(const Fleet& file, const Fleet& stored)
{
    return {mergeSections(file.accounts, stored.accounts), mergeSections(file.groups, stored.groups),
            mergeSections(file.policies, stored.policies), mergeSections(file.servers, stored.servers)};
}

}  // namespace store
