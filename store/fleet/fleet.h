// A fleet as a value: what a fleet file says, what the store holds, and what the one is to become by the other.
//
// What takes a session runs in the caller's transaction. What is wrong with a fleet is thrown as std::runtime_error, a
// text of one line with the place: "groups[3].parent_id: ..." in a file, "group 7 of the store: ..." in the store.
#pragma once

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <json/value.h>
#include <soci/soci.h>

#include "store/records/records.h"
#include "store/store.h"

namespace store {

constexpr size_t kStored = SIZE_MAX;  // the place of a record that no file names

// A record with what belongs to it.
template <typename R>
struct Entry {
    R record;
    std::vector<int64_t> delegates;  // uids in their order; of groups and servers
    size_t place = kStored;          // index in the file's section
};

// The records of a kind, ascending by their identifiers.
template <typename R>
using Section = std::vector<Entry<R>>;

// A section's name in a file.
template <typename R>
constexpr const char* kSection = nullptr;
template <>
inline constexpr const char* kSection<AccountRow> = "accounts";
template <>
inline constexpr const char* kSection<Group> = "groups";
template <>
inline constexpr const char* kSection<Policy> = "policies";
template <>
inline constexpr const char* kSection<Server> = "servers";

struct Fleet {
    Section<AccountRow> accounts;
    Section<Group> groups;  // of the store, and what a store is to become: the root group is the first
    Section<Policy> policies;
    Section<Server> servers;
    int64_t lastGroup = 0;  // of the store: the highest identifier that a group ever had
};

// The record's identifier: an account's uid.
template <typename R>
int64_t idOf(const R& record)
{
    return record.*std::get<int64_t R::*>(Kind<R>::kFields[0].member);
}

// The entry with that identifier, null when there is none.
template <typename R>
const Entry<R>* find(const Section<R>& section, int64_t id)
{
    const auto found = std::lower_bound(section.begin(), section.end(), id, [](const Entry<R>& entry, int64_t value) {
        return idOf(entry.record) < value;
    });
    return found == section.end() || idOf(found->record) != id ? nullptr : &*found;
}

// Runs the check of an entry and puts the entry's place before the text of what it throws.
template <typename R, typename Check>
void at(size_t place, int64_t id, Check&& check)
{
    try {
        check();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(place == kStored
                                     ? Kind<R>::kName + (" " + std::to_string(id) + " of the store: ") + error.what()
                                     : kSection<R> + ("[" + std::to_string(place) + "].") + error.what());
    }
}

// --- fleet_reader.cpp

// The fleet of a file. Each record is checked by itself; what it refers to is not.
Fleet readFleet(const Json::Value& jFleet);

// The entry of a record of such a file, its place left open. Throws InvalidInput with the member. For all four kinds.
template <typename R>
Entry<R> readEntry(const Json::Value& jRecord);

// --- fleet_stored.cpp

// The fleet in the store, read as it is, unchecked. Throws DatabaseError.
Fleet storedFleet(soci::session& sql);

// What a store holds that has just been made.
Fleet newFleet();

// A file's records, and those of the fleet that the file lacks.
Fleet merged(const Fleet& file, const Fleet& fleet);

// --- fleet_checks.cpp

// Which records are held to what they refer to: those of a file only, since what the store holds besides was there
// before, or all.
enum class Checked { ofFile, all };

// Checks the fleet as a whole: names, parents, policy links, delegates and depth.
void checkFleet(const Fleet& fleet, Checked checked);

// Checks that some account may do everything: nobody could change a store without one.
void checkAdministrator(const Fleet& fleet);

// How many groups stand above each group of a checked fleet, itself included: 0 for the root, which comes first.
std::vector<int> depthsOf(const Section<Group>& groups);

// --- fleet_plan.cpp

// How one record changes.
template <typename R>
struct Difference {
    const Entry<R>* pBefore = nullptr;                 // null: it is new
    const Entry<R>* pAfter = nullptr;                  // null: it is to be deleted
    std::bitset<Kind<R>::kFields.size()> fields = {};  // those that differ, by index; none in a new record
    bool delegates = false;                            // whether they differ

    const Entry<R>& either() const
    {
        return pAfter != nullptr ? *pAfter : *pBefore;
    }

    // Whether the record is there before and after, with other values in that member.
    bool changes(auto R::*member) const
    {
        for (size_t i = 0; i < fields.size(); ++i) {
            if (fields[i] && Kind<R>::kFields[i].member == decltype(Kind<R>::kFields[i].member)(member)) {
                return true;
            }
        }
        return false;
    }
};

template <typename R>
using Differences = std::vector<Difference<R>>;

// What makes one fleet the other; valid as long as both.
struct Plan {
    Differences<AccountRow> accounts;
    Differences<Group> groups;
    Differences<Policy> policies;
    Differences<Server> servers;
};

Plan compare(const Fleet& before, const Fleet& after);

// The plan for people, a line for each record as applyFleet of store.h describes it.
std::vector<std::string> linesOf(const Plan& plan);

PlanCount countOf(const Plan& plan);

// --- fleet_writer.cpp

// Makes the store the fleet that the plan leads to. Throws DatabaseError. step: called for each record written.
void writePlan(soci::session& sql, const Plan& plan, const Fleet& after, const std::function<void()>& step);

// --- fleet_export.cpp

// The fleet as the object of a file.
Json::Value jsonOf(const Fleet& fleet);

// The lines of such a file, one record in each, without line ends.
std::vector<std::string> fileOf(const Fleet& fleet);

}  // namespace store
