// Writes fleet files. Members come in a fixed order and are left out where they have their default value, so that two
// exports of one fleet are equal, and those of two fleets differ in the lines of the records that differ.
#include "store/fleet/export.h"

#include "store/base/errors.h"
#include "store/base/utf8.h"
#include "store/base/visible_text.h"
#include "store/fleet/parse.h"
#include "store/records/json_text.h"
#include "store/records/policy_links.h"

namespace store {
namespace {

// Returns whether the member is written even with its default value.
bool isAlwaysWritten(const std::string& name)
{
    return name == "id" || name == "uid" || name == "parent_id" || name == "name";
}

template <typename R>
Json::Value valueOf(const Field<R>&, int64_t number)
{
    return Json::Value(Json::Int64{number});
}

template <typename R>
Json::Value valueOf(const Field<R>&, int32_t flag)
{
    return Json::Value(flag != 0);
}

template <typename R>
Json::Value valueOf(const Field<R>& field, const VLIBCString& text)
{
    requireValid(isPlainText(text.c_str()), field.name, "a text that is not UTF-8");
    if (field.kind == FieldKind::plain || text.empty()) {
        return Json::Value(text.c_str());
    }
    try {
        return field.kind == FieldKind::links ? parseLinks(text.c_str()) : parseJson(text.c_str());
    } catch (const std::runtime_error& error) {
        throw InvalidInput(field.name, error.what());
    }
}

Json::Value delegatesToJson(const std::vector<int64_t>& uids)
{
    Json::Value jDelegates(Json::arrayValue);
    for (const int64_t uid : uids) {
        Json::Value& jDelegate = jDelegates.append(Json::Value());
        jDelegate["ugid"] = Json::Int64{uid};
        jDelegate["user_type"] = kDelegateUserType;
    }
    return jDelegates;
}

// Calls take(name, value) for each member to be written, in order: the members that only the store writes come last.
template <typename R, typename Take>
void forEachMember(const Entry<R>& entry, Take&& take)
{
    static const R kDefault;
    const auto takeFields = [&](bool isStoreManaged) {
        for (const Field<R>& field : Kind<R>::kFields) {
            if ((field.kind == FieldKind::storeManaged) == isStoreManaged &&
                (isAlwaysWritten(field.name) || !isSame(field, entry.record, kDefault))) {
                take(field.name,
                     std::visit([&](auto member) { return valueOf(field, entry.record.*member); }, field.member));
            }
        }
    };
    takeFields(false);
    if (!entry.delegates.empty()) {
        take("delegate", delegatesToJson(entry.delegates));
    }
    takeFields(true);
}

template <typename R>
void addSection(const Section<R>& section, Json::Value& jFleet)
{
    Json::Value& jSection = jFleet[kSectionName<R>] = Json::Value(Json::arrayValue);
    for (const Entry<R>& entry : section) {
        withPlaceInErrors(entry, [&] {
            Json::Value& jRecord = jSection.append(Json::Value(Json::objectValue));
            forEachMember(entry, [&](const char* szName, const Json::Value& jValue) { jRecord[szName] = jValue; });
        });
    }
}

// Parses the record again, so that the export of a damaged store names the record that no apply would accept.
template <typename R>
std::string recordLine(const Entry<R>& entry)
{
    std::string line;
    withPlaceInErrors(entry, [&] {
        Json::Value jRecord(Json::objectValue);
        forEachMember(entry, [&](const char* szName, const Json::Value& jValue) {
            line += (line.empty() ? "{\"" : ", \"") + std::string(szName) + "\": " + visibleJson(jValue);
            jRecord[szName] = jValue;
        });
        Entry<R> parsed;
        parseEntry(jRecord, parsed);
    });
    return line + "}";
}

template <typename R>
void addLines(const Section<R>& section, std::vector<std::string>& lines)
{
    lines.push_back(std::string(" \"") + kSectionName<R> + "\": [");
    for (const Entry<R>& entry : section) {
        lines.push_back("  " + recordLine(entry) + (&entry == &section.back() ? "" : ","));
    }
    lines.push_back(" ]");
}

}  // namespace

Json::Value toJson(const Fleet& fleet)
{
    Json::Value jFleet;
    addSection(fleet.accounts, jFleet);
    addSection(fleet.groups, jFleet);
    addSection(fleet.policies, jFleet);
    addSection(fleet.servers, jFleet);
    return jFleet;
}

std::vector<std::string> fileLines(const Fleet& fleet)
{
    std::vector<std::string> lines = {"{"};
    addLines(fleet.accounts, lines);
    lines.back() += ",";
    addLines(fleet.groups, lines);
    lines.back() += ",";
    addLines(fleet.policies, lines);
    lines.back() += ",";
    addLines(fleet.servers, lines);
    lines.push_back("}");
    return lines;
}

}  // namespace store
