// Compares records field by field, with the tables of fields.
#include "store/history/change_text.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include <json/writer.h>

#include "store/base/utf8.h"
#include "store/records/policy_links.h"

namespace store {
namespace {

// Returns the index from which on two long texts are to be shown, so that the first difference shows.
size_t beginOfDifference(const std::string& before, const std::string& after)
{
    constexpr size_t kContext = 20;
    const auto different = std::mismatch(before.begin(), before.end(), after.begin(), after.end()).first;
    auto from = static_cast<size_t>(different - before.begin());
    if (from < kLongestRecorded / 2) {
        return 0;
    }
    from -= kContext;
    while (from > 0 && isContinuationByte(before[from])) {
        --from;
    }
    return from;
}

std::string partOf(const std::string& text, size_t from)
{
    const std::string part(wholeCharacters(std::string_view(text).substr(from), kLongestRecorded));
    return (from > 0 ? "..." : "") + part + (from + part.size() < text.size() ? "..." : "");
}

std::string listText(const std::vector<int64_t>& ids)
{
    std::string text;
    for (const int64_t id : ids) {
        text += (text.empty() ? "" : ",") + std::to_string(id);
    }
    return text;
}

std::string jsonOf(int64_t value)
{
    return std::to_string(value);
}

std::string jsonOf(int32_t flag)
{
    return flag != 0 ? "true" : "false";
}

// Returns the text to record. Links that hold nothing but identifiers are a list of these.
template <typename R>
std::string recordedText(const Field<R>& field, const VLIBCString& text)
{
    std::vector<int64_t> ids;
    return field.kind == FieldKind::links && readIdsOnly(text.c_str(), ids) ? listText(ids) : text.c_str();
}

template <typename R>
void addField(MemberChanges& members, const Field<R>& field, const VLIBCString* pBefore, const VLIBCString* pAfter)
{
    std::optional<std::string> before, after;
    if (pBefore != nullptr) {
        before = recordedText(field, *pBefore);
    }
    if (pAfter != nullptr) {
        after = recordedText(field, *pAfter);
    }
    members.addText(field.name, before ? &*before : nullptr, after ? &*after : nullptr);
}

template <typename R>
void addField(MemberChanges& members, const Field<R>& field, const auto* pBefore, const auto* pAfter)
{
    members.addJson(field.name, pBefore == nullptr ? "null" : jsonOf(*pBefore),
                    pAfter == nullptr ? "null" : jsonOf(*pAfter));
}

}  // namespace

std::string quotedText(const std::string& text)
{
    return Json::valueToQuotedString(text.c_str());
}

std::string pathPart(const std::string& name)
{
    std::string part;
    for (const char c : name) {
        part += c == '/' || c == '\\' ? "\\" : "";
        part += c;
    }
    return part;
}

void MemberChanges::addText(const char* szName, const std::string* pBefore, const std::string* pAfter)
{
    const auto isLong = [](const std::string* pText) { return pText != nullptr && pText->size() > kLongestRecorded; };
    const bool isCut = isLong(pBefore) || isLong(pAfter);
    const size_t from = isCut && pBefore != nullptr && pAfter != nullptr ? beginOfDifference(*pBefore, *pAfter) : 0;
    const auto show = [from](const std::string* pText) {
        return pText == nullptr ? "null" : quotedText(partOf(*pText, std::min(from, pText->size())));
    };
    add(szName, show(pBefore), show(pAfter), isCut);
}

void MemberChanges::addJson(const char* szName, const std::string& before, const std::string& after)
{
    add(szName, before, after, false);
}

void MemberChanges::addDelegates(const std::vector<int64_t>* pBefore, const std::vector<int64_t>* pAfter)
{
    const std::string before = pBefore == nullptr ? "" : listText(*pBefore);
    const std::string after = pAfter == nullptr ? "" : listText(*pAfter);
    if (before != after) {
        addText("delegate", pBefore == nullptr ? nullptr : &before, pAfter == nullptr ? nullptr : &after);
    }
}

void MemberChanges::add(const char* szName, const std::string& before, const std::string& after, bool isCut)
{
    m_text += m_text.empty() ? "[\"" : ",[\"";
    m_text += szName;
    m_text += "\",";
    m_text += before;
    m_text += ',';
    m_text += after;
    m_text += isCut ? ",true]" : "]";
}

template <typename R>
void addFields(MemberChanges& members, const R* pBefore, const R* pAfter)
{
    static const R kDefault;
    const R& before = pBefore == nullptr ? kDefault : *pBefore;
    const R& after = pAfter == nullptr ? kDefault : *pAfter;
    for (size_t i = 1; i < Kind<R>::kFields.size(); ++i) {
        const Field<R>& field = Kind<R>::kFields[i];
        const bool isNameOfChange = (pBefore == nullptr || pAfter == nullptr) && std::strcmp(field.name, "name") == 0;
        if (field.kind == FieldKind::storeManaged || isNameOfChange || isSame(field, before, after)) {
            continue;
        }
        const auto add = [&](auto member) {
            addField(members, field, pBefore == nullptr ? nullptr : &(pBefore->*member),
                     pAfter == nullptr ? nullptr : &(pAfter->*member));
        };
        std::visit(add, field.member);
    }
}

template <typename R>
Change changeBetween(const R* pBefore, const R* pAfter)
{
    const R& shown = pAfter == nullptr ? *pBefore : *pAfter;
    const int64_t id = shown.*std::get<int64_t R::*>(Kind<R>::kFields[0].member);
    int64_t groupId = 0;
    if constexpr (!std::is_same_v<R, AccountRow>) {
        groupId = shown.parentId;
    }
    const char* szAction = pBefore == nullptr ? "created" : pAfter == nullptr ? "deleted" : "changed";
    Change change{
        Kind<R>::kName, id, groupId, shown.name.c_str(), szAction, pBefore == nullptr || pAfter == nullptr, {}};
    addFields(change.members, pBefore, pAfter);
    return change;
}

void appendText(const Change& change, std::string& text)
{
    text += '[';
    text += std::to_string(change.id);
    text += ',';
    text += quotedText(change.name);
    text += ",\"";
    text += change.szAction;
    text += "\",[";
    text += change.members.text();
    text += "]]";
}

template Change changeBetween(const AccountRow*, const AccountRow*);
template Change changeBetween(const Group*, const Group*);
template Change changeBetween(const Policy*, const Policy*);
template Change changeBetween(const Server*, const Server*);

}  // namespace store
