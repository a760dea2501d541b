// Fleet files are written with the members in one order and those left out that are at their default, so that two
// files of one fleet are the same, and those of two fleets differ in the lines of what differs.
#include "store/base/errors.h"
#include "store/base/utf8.h"
#include "store/base/visible_text.h"
#include "store/fleet/fleet.h"
#include "store/records/json_text.h"

namespace store {
namespace {

constexpr const char* kDelegate = "delegate";

// What a record says even where it is at its default.
bool isAlwaysThere(const std::string& name)
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

Json::Value delegatesOf(const std::vector<int64_t>& uids)
{
    Json::Value jDelegates(Json::arrayValue);
    for (const int64_t uid : uids) {
        Json::Value& jDelegate = jDelegates.append(Json::Value());
        jDelegate["ugid"] = Json::Int64{uid};
        jDelegate["user_type"] = kDelegateUserType;
    }
    return jDelegates;
}

// Calls take(name, value) for each member that is written, in their order: what the store writes by itself comes last.
template <typename R, typename Take>
void eachMember(const Entry<R>& entry, Take&& take)
{
    static const R kFresh;
    const auto giveFields = [&](bool isOwn) {
        for (const Field<R>& field : Kind<R>::kFields) {
            const auto give = [&](auto member) {
                if (isAlwaysThere(field.name) || !isSame(field, entry.record, kFresh)) {
                    take(field.name, valueOf(field, entry.record.*member));
                }
            };
            (field.kind == FieldKind::storeManaged) == isOwn ? std::visit(give, field.member) : void();
        }
    };
    giveFields(false);
    if (!entry.delegates.empty()) {
        take(kDelegate, delegatesOf(entry.delegates));
    }
    giveFields(true);
}

template <typename R>
Json::Value jsonOf(const Entry<R>& entry)
{
    Json::Value jRecord(Json::objectValue);
    eachMember(entry, [&jRecord](const char* szName, const Json::Value& jValue) { jRecord[szName] = jValue; });
    return jRecord;
}

template <typename R>
void append(Json::Value& jFleet, const Section<R>& section)
{
    Json::Value& jSection = jFleet[kSection<R>] = Json::Value(Json::arrayValue);
    for (const Entry<R>& entry : section) {
        at<R>(entry.place, idOf(entry.record), [&] { jSection.append(jsonOf(entry)); });
    }
}

// What is written is read as it will be: a record that nobody could apply is damaged, and named.
template <typename R>
std::string lineOf(const Entry<R>& entry)
{
    std::string line;
    at<R>(entry.place, idOf(entry.record), [&] {
        Json::Value jRecord(Json::objectValue);
        eachMember(entry, [&](const char* szName, const Json::Value& jValue) {
            line += (line.empty() ? "{\"" : ", \"") + std::string(szName) + "\": " + visibleJson(jValue);
            jRecord[szName] = jValue;
        });
        readEntry<R>(jRecord);
    });
    return line + "}";
}

template <typename R>
void append(std::vector<std::string>& lines, const Section<R>& section)
{
    lines.push_back(std::string(" \"") + kSection<R> + "\": [");
    for (const Entry<R>& entry : section) {
        lines.push_back("  " + lineOf(entry) + (&entry == &section.back() ? "" : ","));
    }
    lines.push_back(" ]");
}

}  // namespace

Json::Value jsonOf(const Fleet& fleet)
{
    Json::Value jFleet;
    append(jFleet, fleet.accounts);
    append(jFleet, fleet.groups);
    append(jFleet, fleet.policies);
    append(jFleet, fleet.servers);
    return jFleet;
}

std::vector<std::string> fileOf(const Fleet& fleet)
{
    std::vector<std::string> lines = {"{"};
    append(lines, fleet.accounts);
    lines.back() += ",";
    append(lines, fleet.groups);
    lines.back() += ",";
    append(lines, fleet.policies);
    lines.back() += ",";
    append(lines, fleet.servers);
    lines.push_back("}");
    return lines;
}

}  // namespace store
