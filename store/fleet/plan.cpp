// Finds the records and fields in which two fleets differ.
#include "store/fleet/plan.h"

#include <cstring>
#include <optional>

#include "store/records/json_text.h"
#include "store/records/policy_links.h"
#include "store/records/record_json.h"

namespace store {
namespace {

// Returns the JSON text in the form that the store writes, because a text that was written by direct SQL may have the
// same value in another form. Returns nothing for a text that is not JSON, and for a long one: others wait to write.
template <typename R>
std::optional<std::string> normalForm(const Field<R>& field, const VLIBCString& text)
{
    if (std::strlen(text.c_str()) > field.maxBytes) {
        return std::nullopt;
    }
    try {
        Json::Value jRecord;
        jRecord[field.name] = parseJson(text.c_str());
        R record;
        assignMembers(jRecord, record);
        return (record.*std::get<VLIBCString R::*>(field.member)).c_str();
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

template <typename R>
bool differs(const Field<R>& field, const R& before, const R& after)
{
    if (field.kind == FieldKind::storeManaged || isSame(field, before, after)) {
        return false;
    }
    if (field.kind == FieldKind::plain) {
        return true;
    }
    const auto text = std::get<VLIBCString R::*>(field.member);
    return (before.*text).empty() || normalForm(field, before.*text) != (after.*text).c_str();
}

template <typename R>
Difference<R> differenceOf(const Entry<R>& before, const Entry<R>& after)
{
    Difference<R> difference = {&before, &after};
    for (size_t i = 0; i < Kind<R>::kFields.size(); ++i) {
        difference.changedFields[i] = differs(Kind<R>::kFields[i], before.record, after.record);
    }
    difference.hasOtherDelegates = before.delegates != after.delegates;
    return difference;
}

template <typename R>
Differences<R> compareSections(const Section<R>& before, const Section<R>& after)
{
    Differences<R> differences;
    auto old = before.begin();
    for (const Entry<R>& entry : after) {
        for (; old != before.end() && idOf(old->record) < idOf(entry.record); ++old) {
            differences.push_back({&*old, nullptr});
        }
        if (old == before.end() || idOf(old->record) != idOf(entry.record)) {
            differences.push_back({nullptr, &entry});
            continue;
        }
        const Difference<R> difference = differenceOf(*old++, entry);
        if (difference.changedFields.any() || difference.hasOtherDelegates) {
            differences.push_back(difference);
        }
    }
    for (; old != before.end(); ++old) {
        differences.push_back({&*old, nullptr});
    }
    return differences;
}

template <typename R>
void addCounts(const Differences<R>& differences, PlanCount& counts)
{
    for (const Difference<R>& difference : differences) {
        ++(difference.isNew() ? counts.created : difference.isDeleted() ? counts.deleted : counts.changed);
    }
}

}  // namespace

Plan makePlan(const Fleet& before, const Fleet& after)
{
    return {compareSections(before.accounts, after.accounts), compareSections(before.groups, after.groups),
            compareSections(before.policies, after.policies), compareSections(before.servers, after.servers)};
}

PlanCount countOf(const Plan& plan)
{
    PlanCount counts;
    addCounts(plan.accounts, counts);
    addCounts(plan.groups, counts);
    addCounts(plan.policies, counts);
    addCounts(plan.servers, counts);
    return counts;
}

}  // namespace store
