// A fleet as a whole: what its records refer to, and what no two of them may have.
#include <string_view>
#include <tuple>

#include "store/base/errors.h"
#include "store/fleet/fleet.h"
#include "store/records/json_text.h"

namespace store {
namespace {

// Throws what is wrong with an entry, with its place.
template <typename R>
[[noreturn]] void blame(const Entry<R>& entry, const char* szMember, const std::string& why)
{
    at<R>(entry.place, idOf(entry.record), [&] { throw InvalidInput(szMember, why); });
    throw std::logic_error(why);
}

// The entry at fault that comes first in the file, where it is not the store's; null when there is none.
template <typename R, typename IsFault>
const Entry<R>* firstFault(const Section<R>& section, IsFault&& isFault)
{
    const Entry<R>* pFirst = nullptr;
    for (const Entry<R>& entry : section) {
        if ((pFirst == nullptr || entry.place < pFirst->place) && isFault(entry)) {
            pFirst = &entry;
        }
    }
    return pFirst;
}

// Of two entries that cannot both be: the later one of the file, so that the file's author can do something about it.
template <typename R>
void blameOne(const Entry<R>& one, const Entry<R>& other, const char* szMember, const char* szWhy)
{
    const bool isOther = one.place == kStored || (other.place != kStored && one.place < other.place);
    const Entry<R>& kept = isOther ? one : other;
    blame(isOther ? other : one, szMember, Kind<R>::kName + (" " + std::to_string(idOf(kept.record))) + szWhy);
}

// Checks that no two entries have the same parent and name.
template <typename R, typename ParentOf>
void checkNames(typename Section<R>::const_iterator begin, typename Section<R>::const_iterator end, ParentOf&& parentOf,
                const char* szWhy)
{
    std::vector<std::tuple<int64_t, std::string_view, const Entry<R>*>> names;
    for (auto entry = begin; entry != end; ++entry) {
        names.emplace_back(parentOf(entry->record), entry->record.name.c_str(), &*entry);
    }
    std::sort(names.begin(), names.end());
    const auto twin = std::adjacent_find(names.begin(), names.end(), [](const auto& one, const auto& other) {
        return std::get<0>(one) == std::get<0>(other) && std::get<1>(one) == std::get<1>(other);
    });
    if (twin != names.end()) {
        blameOne(*std::get<2>(*twin), *std::get<2>(*(twin + 1)), "name", szWhy);
    }
}

template <typename R>
void checkParents(const Section<R>& section, const Fleet& fleet)
{
    const auto isLost = [&](const Entry<R>& entry) { return find(fleet.groups, entry.record.parentId) == nullptr; };
    if (const auto* pFault = firstFault(section, isLost)) {
        blame(*pFault, "parent_id", "no group " + std::to_string(pFault->record.parentId));
    }
}

// The index of each group's parent.
std::vector<size_t> parentsOf(const Section<Group>& groups)
{
    std::vector<size_t> parents;
    parents.reserve(groups.size());
    for (const Entry<Group>& entry : groups) {
        parents.push_back(static_cast<size_t>(find(groups, entry.record.parentId) - groups.data()));
    }
    return parents;
}

struct Way {
    int steps = 0;
    bool isCircle = false;
};

// The way from a group up to the root, or back to itself, but no longer than one step too many.
Way wayUp(const std::vector<size_t>& parents, size_t from)
{
    Way way;
    for (size_t i = from; i != 0 && !way.isCircle && way.steps <= kMaxGroupDepth; ++way.steps) {
        i = parents[i];
        way.isCircle = i == from;
    }
    return way;
}

void checkDepths(const Section<Group>& groups)
{
    const std::vector<size_t> parents = parentsOf(groups);
    const auto wayOf = [&](const Entry<Group>& entry) {
        return wayUp(parents, static_cast<size_t>(&entry - groups.data()));
    };
    if (const auto* pFault = firstFault(groups, [&](const auto& entry) { return wayOf(entry).isCircle; })) {
        blame(*pFault, "parent_id", "leads round in a circle");
    }
    if (const auto* pFault = firstFault(groups, [&](const auto& e) { return wayOf(e).steps > kMaxGroupDepth; })) {
        blame(*pFault, "parent_id",
              "more than " + std::to_string(kMaxGroupDepth) + " groups below one another, or a circle");
    }
}

template <typename R>
void checkRelations(const Section<R>& section, const Fleet& fleet, Checked checked)
{
    for (const Entry<R>& entry : section) {
        if (entry.place == kStored && checked != Checked::all) {
            continue;
        }
        at<R>(entry.place, entry.record.id, [&] {
            if (!entry.record.linkedGpo.empty()) {
                checkLinks(parseLinkIds(entry.record.linkedGpo.c_str()),
                           [&](int64_t id) { return find(fleet.policies, id) != nullptr; });
            }
            for (size_t i = 0; i < entry.delegates.size(); ++i) {
                requireValid(find(fleet.accounts, entry.delegates[i]) != nullptr,
                             "delegate[" + std::to_string(i) + "].ugid",
                             "no account " + std::to_string(entry.delegates[i]));
            }
        });
    }
}

}  // namespace

void checkFleet(const Fleet& fleet, Checked checked)
{
    if (fleet.groups.empty() || fleet.groups.front().record.id != 0) {
        throw std::runtime_error("group 0 of the store: it is missing, or has not the lowest identifier");
    }
    checkNames<AccountRow>(
        fleet.accounts.begin(), fleet.accounts.end(), [](const AccountRow&) { return 0; }, " has it too");
    checkParents(fleet.groups, fleet);
    checkParents(fleet.policies, fleet);
    checkParents(fleet.servers, fleet);
    checkNames<Group>(
        fleet.groups.begin() + 1, fleet.groups.end(), [](const Group& group) { return group.parentId; },
        " has the same parent and name");
    checkDepths(fleet.groups);
    checkRelations(fleet.groups, fleet, checked);
    checkRelations(fleet.servers, fleet, checked);
}

void checkAdministrator(const Fleet& fleet)
{
    const bool isAny = std::any_of(fleet.accounts.begin(), fleet.accounts.end(),
                                   [](const Entry<AccountRow>& entry) { return entry.record.admin != 0; });
    requireValid(isAny, "accounts", "none is an administrator");
}

std::vector<int> depthsOf(const Section<Group>& groups)
{
    const std::vector<size_t> parents = parentsOf(groups);
    std::vector<int> depths;
    depths.reserve(groups.size());
    for (size_t i = 0; i < groups.size(); ++i) {
        depths.push_back(wayUp(parents, i).steps);
    }
    return depths;
}

}  // namespace store
