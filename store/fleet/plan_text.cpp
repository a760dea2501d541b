// Shows each changed member as "name before -> after", with long values cut to where they differ.
#include "store/fleet/plan_text.h"

#include <algorithm>

#include "store/base/visible_text.h"
#include "store/records/json_text.h"
#include "store/records/policy_links.h"

namespace store {
namespace {

constexpr const char* kEmptyValue = "\"\"";

// Returns the identifiers from that index on, separated by commas.
std::string idListText(const std::vector<int64_t>& ids, size_t from)
{
    std::string text = from > 0 ? "..." : "";
    for (size_t i = from; i < ids.size(); ++i) {
        text += (text.empty() ? "" : ",") + std::to_string(ids[i]);
    }
    return text.empty() ? kEmptyValue : text.size() <= kLongestValue ? text : text.substr(0, kLongestValue) + "...";
}

// Returns " BEFORE -> AFTER" for two strings or lists. When the parts that would be shown are equal, both start shortly
// before the first difference. show(value, from): returns the text of a value from an index on, which may be cut.
template <typename Value, typename Show>
std::string beforeAndAfter(const Value& before, const Value& after, Show&& show)
{
    size_t from = 0;
    if (show(before, from) == show(after, from)) {
        constexpr size_t kContext = 10;
        const auto difference = std::mismatch(before.begin(), before.end(), after.begin(), after.end()).first;
        const auto same = static_cast<size_t>(difference - before.begin());
        from = same - std::min(same, kContext);
    }
    return " " + show(before, from) + " -> " + show(after, from);
}

template <typename R>
std::string fullText(const Field<R>&, int64_t value)
{
    return std::to_string(value);
}

template <typename R>
std::string fullText(const Field<R>&, int32_t flag)
{
    return flag != 0 ? "true" : "false";
}

// Returns a plain text as it is, and a JSON value as its JSON text.
template <typename R>
std::string fullText(const Field<R>& field, const VLIBCString& text)
{
    if (field.kind == FieldKind::plain || text.empty()) {
        return field.kind == FieldKind::plain ? text.c_str() : kEmptyValue;
    }
    try {
        return visibleJson(parseJson(text.c_str()));
    } catch (const std::runtime_error&) {  // the text in the store may be damaged
        return visibleJson(Json::Value(text.c_str()));
    }
}

template <typename R>
std::string fieldChange(const Field<R>& field, const R& before, const R& after)
{
    if (field.kind == FieldKind::links) {
        const VLIBCString& links = before.*std::get<VLIBCString R::*>(field.member);
        const VLIBCString& newLinks = after.*std::get<VLIBCString R::*>(field.member);
        try {
            const auto policies = links.empty() ? std::vector<int64_t>() : parseLinkIds(links.c_str());
            const auto newPolicies = newLinks.empty() ? std::vector<int64_t>() : parseLinkIds(newLinks.c_str());
            if (policies != newPolicies) {
                return beforeAndAfter(policies, newPolicies, idListText);
            }
        } catch (const std::runtime_error&) {  // the text in the store may be damaged
        }
    }
    const auto textOf = [&field](const R& record) {
        return std::visit([&](auto member) { return fullText(field, record.*member); }, field.member);
    };
    const auto show = [&field](const std::string& text, size_t from) {
        return field.kind == FieldKind::plain ? visibleText(text, from) : visiblePartOfJson(text, from);
    };
    return beforeAndAfter(textOf(before), textOf(after), show);
}

// Returns ": member before -> after, ..." for a record that stays.
template <typename R>
std::string memberChanges(const Difference<R>& difference)
{
    std::string text;
    const auto append = [&text](const std::string& member) { text += (text.empty() ? ": " : ", ") + member; };
    for (size_t i = 0; i < difference.changedFields.size(); ++i) {
        if (difference.changedFields[i]) {
            const Field<R>& field = Kind<R>::kFields[i];
            append(field.name + fieldChange(field, difference.pBefore->record, difference.pAfter->record));
        }
    }
    if (difference.hasOtherDelegates) {
        append("delegate" + beforeAndAfter(difference.pBefore->delegates, difference.pAfter->delegates, idListText));
    }
    return text;
}

template <typename R>
void addLines(const Differences<R>& differences, std::vector<std::string>& lines)
{
    for (const Difference<R>& difference : differences) {
        const R& record = difference.record();
        const R& named = difference.isNew() ? record : difference.pBefore->record;
        const std::string name =
            std::string(Kind<R>::kName) + " " + std::to_string(idOf(record)) + " " + visibleText(named.name.c_str());
        if (difference.isNew()) {
            lines.push_back("+ " + name);
        } else if (difference.isDeleted()) {
            lines.push_back("- " + name);
        } else {
            lines.push_back("~ " + name + memberChanges(difference));
        }
    }
}

}  // namespace

std::vector<std::string> planLines(const Plan& plan)
{
    std::vector<std::string> lines;
    addLines(plan.accounts, lines);
    addLines(plan.groups, lines);
    addLines(plan.policies, lines);
    addLines(plan.servers, lines);
    return lines;
}

}  // namespace store
