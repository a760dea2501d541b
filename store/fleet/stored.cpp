// The fleet that the store holds, and what becomes of it with the records of a file.
#include <iterator>

#include "store/fleet/fleet.h"
#include "store/records/rows.h"

namespace store {
namespace {

constexpr int64_t kNobody = -1;  // the uid of a delegate that is no account

template <typename R>
void readRows(soci::session& sql, Section<R>& section)
{
    Reader<R> reader(sql, "", std::string("ORDER BY ") + Kind<R>::kFields[0].name);
    for (Entry<R> entry; reader.next(entry.record);) {
        section.push_back(entry);
    }
}

// Both the nodes and the rows come in the order of their identifiers. Rows of nodes that are not there are passed over.
template <typename R>
void readDelegates(soci::session& sql, Section<R>& section)
{
    const int64_t type = Kind<R>::kType;
    Reader<DelegateRow> reader(sql, "", "WHERE node_type = :type ORDER BY node_id, position", type);
    auto entry = section.begin();
    for (DelegateRow row; reader.next(row);) {
        while (entry != section.end() && entry->record.id < row.nodeId) {
            ++entry;
        }
        if (entry != section.end() && entry->record.id == row.nodeId) {
            entry->delegates.push_back(row.userType == kDelegateUserType ? row.ugid : kNobody);
        }
    }
}

template <typename R>
Section<R> mergedSection(const Section<R>& file, const Section<R>& fleet)
{
    Section<R> result;
    result.reserve(std::max(file.size(), fleet.size()));
    std::set_union(file.begin(), file.end(), fleet.begin(), fleet.end(), std::back_inserter(result),
                   [](const Entry<R>& one, const Entry<R>& other) { return idOf(one.record) < idOf(other.record); });
    return result;
}

}  // namespace

Fleet storedFleet(soci::session& sql)
{
    Fleet fleet;
    readRows(sql, fleet.accounts);
    readRows(sql, fleet.groups);
    readRows(sql, fleet.policies);
    readRows(sql, fleet.servers);
    readDelegates(sql, fleet.groups);
    readDelegates(sql, fleet.servers);
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

Fleet merged(const Fleet& file, const Fleet& fleet)
{
    return {mergedSection(file.accounts, fleet.accounts), mergedSection(file.groups, fleet.groups),
            mergedSection(file.policies, fleet.policies), mergedSection(file.servers, fleet.servers)};
}

}  // namespace store
