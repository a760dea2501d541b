// Every refusal names the member at fault, and the entry where it is a list.
#include "store/records/json_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <utility>

#include <json/reader.h>
#include <json/writer.h>

#include "store/base/errors.h"
#include "store/base/utf8.h"

namespace store {
namespace {

// takeMember: the value becomes the record's field. Throws InvalidInput.

template <typename R>
void takeMember(const Field<R>& field, const Json::Value& jValue, int64_t& target)
{
    requireValid(jValue.isInt64(), field.name, "not a 64-bit integer");
    target = jValue.asInt64();
}

template <typename R>
void takeMember(const Field<R>& field, const Json::Value& jValue, int32_t& target)
{
    const bool isBit = jValue.isBool() || (jValue.isInt() && (jValue.asInt() == 0 || jValue.asInt() == 1));
    requireValid(isBit, field.name, "neither a boolean nor 0 or 1");
    target = jValue.asBool() ? 1 : 0;
}

void takeText(const char* szName, const Json::Value& jValue, VLIBCString& target)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    requireValid(jValue.isString() && jValue.getString(&begin, &end), szName, "not a text");
    const std::string text(begin, end);
    requireValid(isPlainText(text), szName, "a text that is not UTF-8 or holds a NUL");
    target = VLIBCString(text);
}

// Links are gone when the order is empty and nothing else is said about them.
bool hasNoLinks(const Json::Value& jLinks)
{
    return linkIds(jLinks).empty() && jLinks.size() <= (jLinks.isMember("order") ? 1U : 0U);
}

// The member that names the policy of an entry, null when there is none.
const Json::Value& linkedId(const Json::Value& jLink)
{
    return jLink["id"].isNull() ? jLink["gpo_id"] : jLink["id"];
}

// What an answer adds for people is of the moment of the answer.
void removeTextsForPeople(Json::Value& jObject)
{
    for (const char* szForPeople : {"gpo_id", "gpo_name", "gpo_desc"}) {
        jObject.removeMember(szForPeople);
    }
}

// As they are stored. Throws InvalidInput for another form.
Json::Value plainLinks(Json::Value jLinks)
{
    linkIds(jLinks);
    Json::Value& jOrder = jLinks["order"];
    for (Json::Value& jLink : jOrder) {
        jLink["id"] = Json::Value(linkedId(std::as_const(jLink)));
        removeTextsForPeople(jLink);
    }
    if (jOrder.isNull()) {
        jLinks.removeMember("order");
    }
    removeTextsForPeople(jLinks);
    return jLinks;
}

void takeJson(FieldKind kind, const Json::Value& jValue, VLIBCString& target)
{
    const Json::Value jStored = kind == FieldKind::links ? plainLinks(jValue) : jValue;
    const bool isNone = jStored.isNull() || (kind == FieldKind::links && hasNoLinks(jStored));
    target = isNone ? VLIBCString() : VLIBCString(jsonText(jStored));
}

template <typename R>
void takeMember(const Field<R>& field, const Json::Value& jValue, VLIBCString& target)
{
    if (field.kind == FieldKind::plain) {
        takeText(field.name, jValue, target);
        return;
    }
    try {
        takeJson(field.kind, jValue, target);
    } catch (const Refusal& refusal) {
        throw InvalidInput(field.name, refusal.what());
    }
}

// Reads the identifiers out of {"order":[{"id":N},...]} as jsonText writes it. False for any other text.
bool readPlainLinks(std::string_view text, std::vector<int64_t>& ids)
{
    constexpr std::string_view kBegin = "{\"order\":[";
    constexpr std::string_view kBefore = "{\"id\":";
    if (!text.starts_with(kBegin)) {
        return false;
    }
    text.remove_prefix(kBegin.size());
    for (bool isMore = true; isMore;) {
        const char* pEnd = text.data() + text.size();
        if (!text.starts_with(kBefore)) {
            return false;
        }
        const auto [pStop, error] = std::from_chars(text.data() + kBefore.size(), pEnd, ids.emplace_back());
        if (error != std::errc() || pEnd - pStop < 2 || *pStop != '}') {
            return false;
        }
        isMore = pStop[1] == ',';
        text.remove_prefix(static_cast<size_t>(pStop - text.data()) + (isMore ? 2 : 1));
    }
    return text == "]}";
}

// Links to that many policies, whose identifiers are to be filled in.
Json::Value blankLinks(size_t count)
{
    Json::Value jLink(Json::objectValue);
    jLink[Json::StaticString("id")] = 0;
    Json::Value jLinks(Json::objectValue);
    Json::Value& jOrder = jLinks[Json::StaticString("order")] = Json::Value(Json::arrayValue);
    while (jOrder.size() < count) {
        jOrder.append(jLink);
    }
    return jLinks;
}

Json::Value linksTo(const std::vector<int64_t>& ids)
{
    // Most nodes have few links: copying a value is several times as fast as making it.
    static const std::array<Json::Value, 9> kBlanks = [] {
        std::array<Json::Value, 9> blanks;
        for (size_t count = 0; count < blanks.size(); ++count) {
            blanks[count] = blankLinks(count);
        }
        return blanks;
    }();
    Json::Value jLinks(ids.size() < kBlanks.size() ? kBlanks[ids.size()] : blankLinks(ids.size()));
    auto id = ids.begin();
    for (Json::Value& jLink : *jLinks.begin()) {
        *jLink.begin() = Json::Value(Json::Int64{*id++});
    }
    return jLinks;
}

std::string entry(const char* szList, Json::ArrayIndex index)
{
    return std::string(szList) + "[" + std::to_string(index) + "]";
}

}  // namespace

std::string jsonText(const Json::Value& jValue)
{
    static const Json::StreamWriterBuilder builder = [] {
        Json::StreamWriterBuilder plain;
        plain["indentation"] = "";
        return plain;
    }();
    std::string text = Json::writeString(builder, jValue);
    parseJson(text.c_str());  // what is nested too deep to be read again must not be stored
    return text;
}

Json::Value parseJson(const char* szText)
{
    thread_local const std::unique_ptr<Json::CharReader> pReader(Json::CharReaderBuilder().newCharReader());
    Json::Value jValue;
    try {
        require(pReader->parse(szText, szText + std::strlen(szText), &jValue, nullptr), EINVAL, "a text is not JSON");
    } catch (const Json::Exception&) {
        throw Refusal(EINVAL, "a value that is nested too deep");
    }
    return jValue;
}

Json::Value parseLinks(const char* szText)
{
    thread_local std::vector<int64_t> tIds;
    tIds.clear();
    return readPlainLinks(szText, tIds) ? linksTo(tIds) : parseJson(szText);
}

std::vector<int64_t> parseLinkIds(const char* szText)
{
    std::vector<int64_t> ids;
    if (!readPlainLinks(szText, ids)) {
        ids = linkIds(parseJson(szText));
    }
    return ids;
}

VLIBCString plainLinks(const VLIBCString& links)
{
    std::vector<int64_t> ids;
    if (readPlainLinks(links.c_str(), ids)) {
        return links;
    }
    const Json::Value jLinks = parseJson(links.c_str());
    linkIds(jLinks);
    return VLIBCString(jsonText(plainLinks(jLinks)));
}

std::vector<int64_t> linkIds(const Json::Value& jLinks)
{
    requireValid(jLinks.isNull() || jLinks.isObject(), "linked_gpo", "not an object");
    const Json::Value& jOrder = jLinks["order"];
    requireValid(jOrder.isNull() || jOrder.isArray(), "linked_gpo.order", "not an array");
    std::vector<int64_t> ids;
    for (Json::ArrayIndex i = 0; i < jOrder.size(); ++i) {
        const Json::Value& jLink = jOrder[i];
        const bool isLink = jLink.isObject() && linkedId(jLink).isInt64();
        requireValid(isLink, entry("linked_gpo.order", i), "not an object with an integer \"id\"");
        ids.push_back(linkedId(jLink).asInt64());
    }
    return ids;
}

void checkLinks(const std::vector<int64_t>& ids, const std::function<bool(int64_t)>& isKnown, int unknown)
{
    std::unordered_set<int64_t> seen;
    for (Json::ArrayIndex i = 0; i < ids.size(); ++i) {
        const bool known = isKnown(ids[i]);
        if (known && seen.insert(ids[i]).second) {
            continue;
        }
        const std::string place = entry("linked_gpo.order", i);
        const std::string policy = "no policy " + std::to_string(ids[i]);
        requireValid(!known, place, "a policy that is linked before");
        if (unknown == EACCES) {
            throw Refusal(EACCES, place + ".id: " + policy + " that you see");
        }
        throw InvalidInput(place + ".id", policy);
    }
}

void checkName(const char* szName)
{
    requireValid(*szName != '\0', "name", "missing or empty");
    requireValid(characterCount(szName) <= kMaxNameLength, "name",
                 "longer than " + std::to_string(kMaxNameLength) + " characters");
}

std::vector<int64_t> delegateUgids(const Json::Value& jDelegates, const std::function<bool(int64_t)>& isKnown)
{
    requireValid(jDelegates.isArray(), "delegate", "not an array");
    std::vector<int64_t> ugids;
    std::unordered_set<int64_t> seen;
    const std::string notAnAccount = "not " + std::to_string(kDelegateUserType) + ", an account";
    for (Json::ArrayIndex i = 0; i < jDelegates.size(); ++i) {
        const Json::Value& jDelegate = jDelegates[i];
        const std::string place = entry("delegate", i);
        requireValid(jDelegate.isObject(), place, "not an object");
        const Json::Value& jUserType = jDelegate["user_type"];
        const Json::Value& jUgid = jDelegate["ugid"];
        requireValid(jUserType.isInt() && jUserType.asInt() == kDelegateUserType, place + ".user_type", notAnAccount);
        requireValid(jUgid.isInt64(), place + ".ugid", "not an integer");
        requireValid(isKnown(jUgid.asInt64()), place + ".ugid", "no account " + std::to_string(jUgid.asInt64()));
        requireValid(seen.insert(jUgid.asInt64()).second, place, "a delegate that is named before");
        ugids.push_back(jUgid.asInt64());
    }
    return ugids;
}

int settingVersion(const Json::Value& jSetting)
{
    requireValid(jSetting.isObject(), "setting", "not an object");
    const Json::Value& jVersion = jSetting["version"];
    requireValid(jVersion.isInt(), "setting.version", "not a 32-bit integer");
    return jVersion.asInt();
}

template <typename R>
void assignMembers(const Json::Value& jRecord, R& record)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        const Json::Value* pValue = jRecord.find(field.name, field.name + std::strlen(field.name));
        const bool clears = field.kind == FieldKind::json || field.kind == FieldKind::links;
        if (field.kind == FieldKind::storeManaged || pValue == nullptr || (pValue->isNull() && !clears)) {
            continue;
        }
        std::visit([&](auto member) { takeMember(field, *pValue, record.*member); }, field.member);
    }
}

template void assignMembers(const Json::Value&, Group&);
template void assignMembers(const Json::Value&, Server&);
template void assignMembers(const Json::Value&, Policy&);
template void assignMembers(const Json::Value&, AccountRow&);

}  // namespace store
