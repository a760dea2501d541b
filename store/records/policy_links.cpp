// Reads and writes policy links. Most texts hold nothing but identifiers; those are read by hand, which is several
// times as fast as through the JSON library.
#include "store/records/policy_links.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "store/base/errors.h"
#include "store/records/json_text.h"

namespace store {
namespace {

// Returns the member that names the policy of an entry, null when there is none.
const Json::Value& linkedId(const Json::Value& jLink)
{
    return jLink["id"].isNull() ? jLink["gpo_id"] : jLink["id"];
}

void removeAnswerMembers(Json::Value& jObject)
{
    for (const char* szName : {"gpo_id", "gpo_name", "gpo_desc"}) {
        jObject.removeMember(szName);
    }
}

// Brings links that linkIds() accepts to the form that is stored.
void normalize(Json::Value& jLinks)
{
    Json::Value& jOrder = jLinks["order"];
    for (Json::Value& jLink : jOrder) {
        jLink["id"] = Json::Value(linkedId(std::as_const(jLink)));
        removeAnswerMembers(jLink);
    }
    if (jOrder.isNull()) {
        jLinks.removeMember("order");
    }
    removeAnswerMembers(jLinks);
}

// Returns whether normalized links have an order of identifiers and no other member.
bool areIdsOnly(const Json::Value& jLinks)
{
    const Json::Value& jOrder = jLinks["order"];
    return jLinks.size() == 1 && jOrder.isArray() &&
           std::all_of(jOrder.begin(), jOrder.end(), [](const Json::Value& jLink) { return jLink.size() == 1; });
}

// Returns links to that many policies, each with the identifier 0.
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

std::string placeOf(size_t index)
{
    return "linked_gpo.order[" + std::to_string(index) + "]";
}

}  // namespace

bool readIdsOnly(std::string_view text, std::vector<int64_t>& ids)
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

PolicyLinks storableLinks(const VLIBCString& text)
{
    PolicyLinks links{text, {}};
    if (readIdsOnly(text.c_str(), links.ids)) {
        return links;
    }
    Json::Value jLinks = parseJson(text.c_str());
    links.ids = linkIds(jLinks);
    normalize(jLinks);
    links.text = VLIBCString(writeStorableJson(jLinks));
    return links;
}

VLIBCString linksText(Json::Value jLinks)
{
    const bool isEmpty = linkIds(jLinks).empty();
    normalize(jLinks);
    if (isEmpty && (jLinks.empty() || areIdsOnly(jLinks))) {
        return VLIBCString();
    }
    // Links that hold only identifiers cannot be nested too deep.
    return VLIBCString(areIdsOnly(jLinks) ? writeJson(jLinks) : writeStorableJson(jLinks));
}

Json::Value parseLinks(const char* szText)
{
    thread_local std::vector<int64_t> tIds;
    tIds.clear();
    return readIdsOnly(szText, tIds) ? linksTo(tIds) : parseJson(szText);
}

std::vector<int64_t> parseLinkIds(const char* szText)
{
    std::vector<int64_t> ids;
    if (!readIdsOnly(szText, ids)) {
        ids = linkIds(parseJson(szText));
    }
    return ids;
}

std::vector<int64_t> linkIds(const Json::Value& jLinks)
{
    requireValid(jLinks.isNull() || jLinks.isObject(), "linked_gpo", "not an object");
    const Json::Value& jOrder = jLinks["order"];
    requireValid(jOrder.isNull() || jOrder.isArray(), "linked_gpo.order", "not an array");
    std::vector<int64_t> ids;
    for (Json::ArrayIndex i = 0; i < jOrder.size(); ++i) {
        const Json::Value& jLink = jOrder[i];
        if (!jLink.isObject() || !linkedId(jLink).isInt64()) {
            throw InvalidInput(placeOf(i), "not an object with an integer \"id\"");
        }
        ids.push_back(linkedId(jLink).asInt64());
    }
    return ids;
}

void checkLinks(const std::vector<int64_t>& ids, const std::function<bool(int64_t)>& isKnown, int errnoOfUnknown)
{
    std::unordered_set<int64_t> seen;
    for (size_t i = 0; i < ids.size(); ++i) {
        const bool known = isKnown(ids[i]);
        if (known && seen.insert(ids[i]).second) {
            continue;
        }
        const std::string place = placeOf(i);
        const std::string policy = "no policy " + std::to_string(ids[i]);
        requireValid(!known, place, "a policy that is linked before", Reason::duplicate);
        if (errnoOfUnknown == EACCES) {
            throw Refusal(EACCES, Reason::unknownPolicy, place + ".id", policy + " that you see");
        }
        throw InvalidInput(place + ".id", policy, Reason::unknownPolicy);
    }
}

}  // namespace store
