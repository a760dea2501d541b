// Draws the tree of groups, servers and policies as text.
#include "host/cli/tree_view.h"

#include <map>
#include <ostream>
#include <string>
#include <utility>

#include "host/base/text.h"
#include "platform/velq_zem.h"
#include "store/store.h"

namespace host {

namespace {

const std::map<int, std::string> kKinds = {
    {VELQ_ZEM_TYPE_OU, "group"}, {store::kServerType, "server"}, {store::kPolicyType, "policy"}};

// Returns the member, a null value when jObject has none or is no object.
const Json::Value& member(const Json::Value& jObject, const char* szKey)
{
    return jObject.isObject() ? jObject[szKey] : Json::Value::nullSingleton();
}

const Json::Value& arrayMember(const Json::Value& jObject, const char* szKey)
{
    static const Json::Value kNone(Json::arrayValue);
    const Json::Value& jValue = member(jObject, szKey);
    return jValue.isArray() ? jValue : kNone;
}

// What the last line counts: one and many of it.
constexpr std::pair<const char*, const char*> kCounted[] = {
    {"group", "groups"}, {"server", "servers"}, {"policy", "policies"}, {"link", "links"}, {"delegate", "delegates"}};

struct Drawing {
    std::ostream& out;
    const bool withIds;
    std::map<std::string, size_t> counts{};

    // Returns the name, or "#" and the identifier when there is no name.
    std::string label(const Json::Value& jObject, const char* szName, const char* szId) const
    {
        const std::string id = member(jObject, szId).isIntegral() ? jObject[szId].asString() : "?";
        if (!member(jObject, szName).isString()) {
            return "#" + id;
        }
        return (withIds ? id + " " : "") + printable(jObject[szName].asString());
    }

    std::string labels(const std::string& title, const Json::Value& jItems, const char* szName, const char* szId) const
    {
        std::string text;
        for (const Json::Value& jItem : jItems) {
            text += (text.empty() ? title : ", ") + label(jItem, szName, szId);
        }
        return text;
    }

    void add(const Json::Value& jNode, size_t depth)
    {
        const Json::Value& jType = member(jNode, "node_type");
        const auto it = kKinds.find(jType.isInt() ? jType.asInt() : -1);
        const std::string kind = it == kKinds.end() ? "node" : it->second;
        const Json::Value& jDelegates = arrayMember(jNode, "delegate");
        const Json::Value& jLinks = arrayMember(member(jNode, "linked_gpo"), "order");
        ++counts[kind];
        counts["link"] += jLinks.size();
        counts["delegate"] += jDelegates.size();
        out << std::string(2 * depth, ' ') << kind << ' ' << label(jNode, "name", "node_id")
            << labels("  delegates: ", jDelegates, "name", "ugid")
            << labels("  policies: ", jLinks, "gpo_name", "gpo_id")
            << (member(jNode, "linked") == Json::Value(true) ? " (linked)" : "") << '\n';
        for (const Json::Value& jChild : arrayMember(jNode, "children")) {
            add(jChild, depth + 1);
        }
    }
};

}  // namespace

void drawTree(const Json::Value& jNodes, bool withIds, std::ostream& out)
{
    Drawing drawing{out, withIds};
    for (const Json::Value& jNode : jNodes) {
        drawing.add(jNode, 0);
    }
    const char* szSeparator = "";
    for (const auto& [szOne, szMany] : kCounted) {
        const size_t count = drawing.counts[szOne];
        out << std::exchange(szSeparator, ", ") << count << ' ' << (count == 1 ? szOne : szMany);
    }
    out << '\n';
}

}  // namespace host
