// Checks the names, parents, nesting, policy links and delegates of a fleet.
#include "store/fleet/check.h"

#include <span>
#include <string_view>
#include <tuple>

#include "store/base/errors.h"
#include "store/records/policy_links.h"
#include "store/records/record_checks.h"

namespace store {
namespace {

// Returns the first invalid entry of the file, else one that only the store holds; null when all are valid.
template <typename R, typename IsInvalid>
const Entry<R>* firstInvalid(const Section<R>& section, IsInvalid&& isInvalid)
{
    const Entry<R>* pFirst = nullptr;
    for (const Entry<R>& entry : section) {
        if ((pFirst == nullptr || entry.fileIndex < pFirst->fileIndex) && isInvalid(entry)) {
            pFirst = &entry;
        }
    }
    return pFirst;
}

// Refuses one of two entries with the same name: the later one in the file, which the author of the file can change.
template <typename R>
[[noreturn]] void refuseDuplicate(const Entry<R>& one, const Entry<R>& other, const char* szWhy)
{
    const bool isOther =
        one.fileIndex == kNotInFile || (other.fileIndex != kNotInFile && one.fileIndex < other.fileIndex);
    const Entry<R>& kept = isOther ? one : other;
    throw InvalidInput(placeOf(isOther ? other : one) + "name",
                       Kind<R>::kName + (" " + std::to_string(idOf(kept.record))) + szWhy);
}

int64_t parentOf(const AccountRow&)
{
    return 0;
}

int64_t parentOf(const Group& group)
{
    return group.parentId;
}

// Checks that no two entries have the same parent and name.
template <typename R>
void checkNames(std::span<const Entry<R>> entries, const char* szWhy)
{
    std::vector<std::tuple<int64_t, std::string_view, const Entry<R>*>> names;
    for (const Entry<R>& entry : entries) {
        names.emplace_back(parentOf(entry.record), entry.record.name.c_str(), &entry);
    }
    std::sort(names.begin(), names.end());
    const auto same = std::adjacent_find(names.begin(), names.end(), [](const auto& one, const auto& other) {
        return std::get<0>(one) == std::get<0>(other) && std::get<1>(one) == std::get<1>(other);
    });
    if (same != names.end()) {
        refuseDuplicate(*std::get<2>(*same), *std::get<2>(*(same + 1)), szWhy);
    }
}

template <typename R>
void checkParents(const Section<R>& section, const Fleet& fleet)
{
    const auto isOrphan = [&](const Entry<R>& entry) { return find(fleet.groups, entry.record.parentId) == nullptr; };
    if (const auto* pOrphan = firstInvalid(section, isOrphan)) {
        throw InvalidInput(placeOf(*pOrphan) + "parent_id", "no group " + std::to_string(pOrphan->record.parentId));
    }
}

// Returns the index of each group's parent.
std::vector<size_t> parentsOf(const Section<Group>& groups)
{
    std::vector<size_t> parents;
    parents.reserve(groups.size());
    for (const Entry<Group>& entry : groups) {
        parents.push_back(static_cast<size_t>(find(groups, entry.record.parentId) - groups.data()));
    }
    return parents;
}

struct ParentChain {
    int depth = 0;         // kMaxGroupDepth + 1 for any greater depth
    bool isCycle = false;  // whether the group is its own ancestor
};

// Follows the parents up to the root. Stops beyond the allowed depth, because a cycle above the group would never end.
ParentChain parentChainOf(size_t group, const std::vector<size_t>& parents)
{
    ParentChain chain;
    for (size_t i = group; i != 0 && !chain.isCycle && chain.depth <= kMaxGroupDepth; ++chain.depth) {
        i = parents[i];
        chain.isCycle = i == group;
    }
    return chain;
}

void checkDepths(const Section<Group>& groups)
{
    const std::vector<size_t> parents = parentsOf(groups);
    const auto chain = [&](const Entry<Group>& entry) {
        return parentChainOf(static_cast<size_t>(&entry - groups.data()), parents);
    };
    if (const auto* pGroup = firstInvalid(groups, [&](const auto& entry) { return chain(entry).isCycle; })) {
        throw InvalidInput(placeOf(*pGroup) + "parent_id", "leads round in a circle");
    }
    const auto isTooDeep = [&](const Entry<Group>& entry) { return chain(entry).depth > kMaxGroupDepth; };
    if (const auto* pGroup = firstInvalid(groups, isTooDeep)) {
        throw InvalidInput(placeOf(*pGroup) + "parent_id",
                           "more than " + std::to_string(kMaxGroupDepth) + " groups below one another, or a circle");
    }
}

template <typename R>
void checkRelations(const Section<R>& section, const Fleet& fleet, RelationsChecked checked)
{
    for (const Entry<R>& entry : section) {
        if (entry.fileIndex == kNotInFile && checked != RelationsChecked::all) {
            continue;
        }
        withPlaceInErrors(entry, [&] {
            if (!entry.record.linkedGpo.empty()) {
                const bool isOfFile = entry.fileIndex != kNotInFile;
                checkLinks(isOfFile ? entry.links : parseLinkIds(entry.record.linkedGpo.c_str()),
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

template <typename R>
void checkSection(const Differences<R>& differences)
{
    static const R kDefault;
    for (const Difference<R>& difference : differences) {
        if (difference.isDeleted()) {
            continue;
        }
        const R& before = difference.isNew() ? kDefault : difference.pBefore->record;
        const Entry<R>& after = *difference.pAfter;
        withPlaceInErrors(after, [&] { checkLengths(after.record, before, after.links.size()); });
    }
}

}  // namespace

void checkFleet(const Fleet& fleet, RelationsChecked checked)
{
    if (fleet.groups.empty() || fleet.groups.front().record.id != 0) {
        throw std::runtime_error("group 0 of the store: it is missing, or has not the lowest identifier");
    }
    checkNames(std::span(fleet.accounts), " has it too");
    checkParents(fleet.groups, fleet);
    checkParents(fleet.policies, fleet);
    checkParents(fleet.servers, fleet);
    checkNames(std::span(fleet.groups).subspan(1), " has the same parent and name");  // the root has no siblings
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

void checkLengths(const Plan& plan)
{
    checkSection(plan.accounts);
    checkSection(plan.groups);
    checkSection(plan.policies);
    checkSection(plan.servers);
}

std::vector<int> depthsOf(const Section<Group>& groups)
{
    const std::vector<size_t> parents = parentsOf(groups);
    std::vector<int> depths;
    depths.reserve(groups.size());
    for (size_t i = 0; i < groups.size(); ++i) {
        depths.push_back(parentChainOf(i, parents).depth);
    }
    return depths;
}

}  // namespace store
