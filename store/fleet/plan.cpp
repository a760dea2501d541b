// What differs between two fleets, and the lines that tell people.
#include <algorithm>
#include <cstring>
#include <optional>

#include "store/base/visible_text.h"
#include "store/fleet/fleet.h"
#include "store/records/json_text.h"

namespace store {
namespace {

constexpr const char* kNothing = "\"\"";

// --- The differences

// A JSON text as the store writes it: one that was put there by hand may say the same in other words. Empty for one
// that cannot be read.
template <typename R>
std::optional<std::string> storedForm(const Field<R>& field, const VLIBCString& text)
{
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
    return (before.*text).empty() || storedForm(field, before.*text) != (after.*text).c_str();
}

template <typename R>
Difference<R> differenceOf(const Entry<R>& before, const Entry<R>& after)
{
    Difference<R> difference{&before, &after};
    for (size_t i = 0; i < Kind<R>::kFields.size(); ++i) {
        difference.fields[i] = differs(Kind<R>::kFields[i], before.record, after.record);
    }
    difference.delegates = before.delegates != after.delegates;
    return difference;
}

// Both ascend by their identifiers.
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
        if (difference.fields.any() || difference.delegates) {
            differences.push_back(difference);
        }
    }
    for (; old != before.end(); ++old) {
        differences.push_back({&*old, nullptr});
    }
    return differences;
}

// --- The lines

// from: index of the first identifier that is shown.
std::string list(const std::vector<int64_t>& ids, size_t from)
{
    std::string text = from > 0 ? "..." : "";
    for (size_t i = from; i < ids.size(); ++i) {
        text += (text.empty() ? "" : ",") + std::to_string(ids[i]);
    }
    return text.empty() ? kNothing : text.size() <= kLongestValue ? text : text.substr(0, kLongestValue) + "...";
}

// before, after: strings or lists. Those that begin alike for longer than is shown are shown from shortly before where
// they differ. show: gives the text of a value from an index on.
template <typename Value, typename Show>
std::string arrow(const Value& before, const Value& after, Show&& show)
{
    size_t from = 0;
    if (show(before, from) == show(after, from)) {
        constexpr size_t kContext = 10;
        const auto parting = std::mismatch(before.begin(), before.end(), after.begin(), after.end()).first;
        const auto same = static_cast<size_t>(parting - before.begin());
        from = same - std::min(same, kContext);
    }
    return " " + show(before, from) + " -> " + show(after, from);
}

template <typename R>
std::string wholeText(const Field<R>&, int64_t value)
{
    return std::to_string(value);
}

template <typename R>
std::string wholeText(const Field<R>&, int32_t flag)
{
    return flag != 0 ? "true" : "false";
}

// Of a value that is JSON, its JSON text.
template <typename R>
std::string wholeText(const Field<R>& field, const VLIBCString& text)
{
    if (field.kind == FieldKind::plain || text.empty()) {
        return field.kind == FieldKind::plain ? text.c_str() : kNothing;
    }
    try {
        return visibleJson(parseJson(text.c_str()));
    } catch (const std::runtime_error&) {  // the store's may be damaged
        return visibleJson(Json::Value(text.c_str()));
    }
}

template <typename R>
std::string arrow(const Field<R>& field, const R& before, const R& after)
{
    if (field.kind == FieldKind::links) {
        const VLIBCString& links = before.*std::get<VLIBCString R::*>(field.member);
        const VLIBCString& newLinks = after.*std::get<VLIBCString R::*>(field.member);
        try {
            const auto policies = links.empty() ? std::vector<int64_t>() : parseLinkIds(links.c_str());
            const auto newPolicies = newLinks.empty() ? std::vector<int64_t>() : parseLinkIds(newLinks.c_str());
            if (policies != newPolicies) {
                return arrow(policies, newPolicies, list);
            }
        } catch (const std::runtime_error&) {  // the store's may be damaged
        }
    }
    const auto textOf = [&field](const R& record) {
        return std::visit([&](auto member) { return wholeText(field, record.*member); }, field.member);
    };
    const auto show = [&field](const std::string& text, size_t from) {
        return field.kind == FieldKind::plain ? visibleText(text, from) : visiblePartOfJson(text, from);
    };
    return arrow(textOf(before), textOf(after), show);
}

// What becomes of a record that stays.
template <typename R>
std::string changesOf(const Difference<R>& difference)
{
    std::string text;
    const auto append = [&text](const std::string& member) { text += (text.empty() ? " " : ", ") + member; };
    for (size_t i = 0; i < difference.fields.size(); ++i) {
        if (difference.fields[i]) {
            const Field<R>& field = Kind<R>::kFields[i];
            append(field.name + arrow(field, difference.pBefore->record, difference.pAfter->record));
        }
    }
    if (difference.delegates) {
        append("delegate" + arrow(difference.pBefore->delegates, difference.pAfter->delegates, list));
    }
    return text;
}

template <typename R>
void appendLines(std::vector<std::string>& lines, const Differences<R>& differences)
{
    for (const Difference<R>& difference : differences) {
        const R& record = difference.either().record;
        const std::string node = Kind<R>::kName + (" " + std::to_string(idOf(record)));
        if (difference.pBefore == nullptr) {
            lines.push_back("+ " + node + " " + visibleText(record.name.c_str()));
        } else if (difference.pAfter == nullptr) {
            lines.push_back("- " + node);
        } else {
            lines.push_back("~ " + node + changesOf(difference));
        }
    }
}

template <typename R>
void count(PlanCount& counts, const Differences<R>& differences)
{
    for (const Difference<R>& difference : differences) {
        ++(difference.pBefore == nullptr  ? counts.created
           : difference.pAfter == nullptr ? counts.deleted
                                          : counts.changed);
    }
}

}  // namespace

Plan compare(const Fleet& before, const Fleet& after)
{
    return {compareSections(before.accounts, after.accounts), compareSections(before.groups, after.groups),
            compareSections(before.policies, after.policies), compareSections(before.servers, after.servers)};
}

std::vector<std::string> linesOf(const Plan& plan)
{
    std::vector<std::string> lines;
    appendLines(lines, plan.accounts);
    appendLines(lines, plan.groups);
    appendLines(lines, plan.policies);
    appendLines(lines, plan.servers);
    return lines;
}

PlanCount countOf(const Plan& plan)
{
    PlanCount counts;
    count(counts, plan.accounts);
    count(counts, plan.groups);
    count(counts, plan.policies);
    count(counts, plan.servers);
    return counts;
}

}  // namespace store
