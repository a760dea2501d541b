// Checks names against one table. The modules read their parameters by themselves.
#include "host/calls/parameters.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace host {

namespace {

using Names = std::vector<std::string_view>;

struct Method {
    std::string_view api, name;
    Names required;          // unless there is multiple_data
    Names requiredInRecord;  // of multiple_data
    Names known;             // beside those that are required and those of kAnswered
};

constexpr char kRecords[] = "multiple_data";
constexpr size_t kMaxIgnored = 10;  // the most that an answer names

// Members of a node in the tree that no method changes. A client may send a node as the tree returned it.
const Names kAnswered = {"id", "node_id", "node_type", "parent_type", "mtime", "children", "expanded", "loaded"};

const Method kMethods[] = {
    {"VELQ.ZEM.KXGroup",
     "create",
     {"id", "name", "parent_id"},
     {},
     {"desc", "block_inheritance", "linked_gpo", "extra_info", "delegate", kRecords}},
    {"VELQ.ZEM.KXGroup",
     "set",
     {"node_id"},
     {"id"},
     {"name", "parent_id", "desc", "block_inheritance", "linked_gpo", "extra_info", "delegate", kRecords}},
    {"VELQ.ZEM.KXGroup", "delete", {"node_id"}, {}, {}},
    {"VELQ.ZEM.KX", "set", {"node_id"}, {"id"}, {"name", "address", "parent_id", "linked_gpo", kRecords}},
    {"VELQ.ZEM.GPO", "link", {"id"}, {}, {"target_add", "target_remove"}},
};

const Method* find(const VELQ::APIMethod& row)
{
    const auto isNamed = [&row](const Method& method) {
        return method.api == row.szApi && method.name == row.szMethod;
    };
    const auto* pFound = std::find_if(std::begin(kMethods), std::end(kMethods), isNamed);
    return pFound == std::end(kMethods) ? nullptr : pFound;
}

bool contains(const Names& names, std::string_view name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

void addIgnored(const Method& method, const Json::Value& jObject, bool isRecord, std::vector<std::string>& ignored)
{
    for (auto it = jObject.begin(); jObject.isObject() && it != jObject.end() && ignored.size() < kMaxIgnored; ++it) {
        const std::string name = it.name();
        const bool isKnown = contains(method.required, name) || contains(method.known, name) ||
                             contains(kAnswered, name) || (isRecord && name == "revision");
        if (!isKnown && std::find(ignored.begin(), ignored.end(), name) == ignored.end()) {
            ignored.push_back(name);
        }
    }
}

// Returns the cause for the first of the names that the object lacks. place: what stands before the name.
store::Cause missingMember(const Names& names, const Json::Value& jObject, const std::string& place)
{
    for (const std::string_view name : names) {
        const std::string member = place + std::string(name);
        if (!jObject.isObject() || !jObject.isMember(std::string(name))) {
            return {"missing", member, member + ": missing"};
        }
    }
    return {};
}

}  // namespace

std::vector<std::string> ignoredNames(const VELQ::APIMethod& row, const Json::Value& jParams)
{
    std::vector<std::string> ignored;
    const Method* pMethod = find(row);
    if (pMethod == nullptr || !jParams.isObject()) {
        return ignored;
    }
    addIgnored(*pMethod, jParams, false, ignored);
    for (const Json::Value& jRecord : jParams[kRecords]) {
        addIgnored(*pMethod, jRecord, true, ignored);
    }
    return ignored;
}

store::Cause missingParameter(const VELQ::APIMethod& row, const Json::Value& jParams)
{
    const Method* pMethod = find(row);
    if (pMethod == nullptr) {
        return {};
    }
    if (!jParams.isObject() || !jParams.isMember(kRecords)) {
        return missingMember(pMethod->required, jParams, "");
    }
    const Json::Value& jRecords = jParams[kRecords];
    if (!jRecords.isArray()) {
        return {"malformed", kRecords, std::string(kRecords) + ": not an array"};
    }
    store::Cause cause;
    for (Json::ArrayIndex i = 0; cause.text.empty() && i < jRecords.size(); ++i) {
        cause = missingMember(pMethod->requiredInRecord, jRecords[i],
                              std::string(kRecords) + "[" + std::to_string(i) + "].");
    }
    return cause;
}

}  // namespace host
