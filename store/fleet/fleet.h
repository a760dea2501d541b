// Declares a fleet in memory: the accounts, groups, policies and servers of a fleet file or of the store.
//
// The functions of store/fleet that take a session run in the caller's transaction. An error in a fleet is thrown as
// std::runtime_error with one line of text that begins with its place: "groups[3].parent_id: ..." for a record of a
// file, "group 7 of the store: ..." for a record that only the store holds.
#pragma once

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "store/records/records.h"

namespace store {

constexpr size_t kNotInFile = SIZE_MAX;

// A record with its delegates and its place in the file.
template <typename R>
struct Entry {
    R record;
    std::vector<int64_t> delegates = {};  // uids in their order; of groups and servers only
    std::vector<int64_t> links = {};      // policies in their order; empty in a record from the store
    size_t fileIndex = kNotInFile;        // index in the file's array; kNotInFile for a record from the store
};

// The records of one kind, ascending by their identifiers.
template <typename R>
using Section = std::vector<Entry<R>>;

// The name of a section in a file.
template <typename R>
constexpr const char* kSectionName = nullptr;
template <>
inline constexpr const char* kSectionName<AccountRow> = "accounts";
template <>
inline constexpr const char* kSectionName<Group> = "groups";
template <>
inline constexpr const char* kSectionName<Policy> = "policies";
template <>
inline constexpr const char* kSectionName<Server> = "servers";

struct Fleet {
    Section<AccountRow> accounts;
    Section<Group> groups;  // begins with the root group, unless the fleet is that of a file
    Section<Policy> policies;
    Section<Server> servers;
    int64_t lastGroup =
        0;  // the highest identifier that a group ever had; 0 unless the fleet was loaded from the store
};

// Returns the record's identifier: the uid of an account, the id of any other record.
template <typename R>
int64_t idOf(const R& record)
{
    return record.*std::get<int64_t R::*>(Kind<R>::kFields[0].member);
}

// Returns whether the entry one comes before the entry other in a section.
template <typename R>
bool hasLowerId(const Entry<R>& one, const Entry<R>& other)
{
    return idOf(one.record) < idOf(other.record);
}

// Returns the entry with that identifier, null when there is none.
template <typename R>
const Entry<R>* find(const Section<R>& section, int64_t id)
{
    const auto found = std::lower_bound(section.begin(), section.end(), id, [](const Entry<R>& entry, int64_t value) {
        return idOf(entry.record) < value;
    });
    return found == section.end() || idOf(found->record) != id ? nullptr : &*found;
}

// Returns the text that begins an error in the entry: "groups[3]." or "group 7 of the store: ".
template <typename R>
std::string placeOf(const Entry<R>& entry)
{
    return entry.fileIndex == kNotInFile
               ? Kind<R>::kName + (" " + std::to_string(idOf(entry.record)) + " of the store: ")
               : kSectionName<R> + ("[" + std::to_string(entry.fileIndex) + "].");
}

// Runs work() on the entry and puts the entry's place before the text of any std::runtime_error that it throws.
template <typename R, typename Work>
void withPlaceInErrors(const Entry<R>& entry, Work&& work)
{
    try {
        work();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(placeOf(entry) + error.what());
    }
}

}  // namespace store
