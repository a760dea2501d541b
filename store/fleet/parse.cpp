// Parses the records of a fleet file. A key that the format does not have is refused: with a mistyped key, a record
// would silently lose a member.
#include "store/fleet/parse.h"

#include <unordered_set>

#include "store/base/errors.h"
#include "store/fleet/load.h"
#include "store/records/delegates.h"
#include "store/records/policy_links.h"
#include "store/records/record_checks.h"
#include "store/records/record_json.h"

namespace store {
namespace {

constexpr int64_t kHighestNumber = INT64_MAX / 2;  // of identifiers and revisions, so that the store can count up
constexpr int64_t kHighestUid = UINT32_MAX - 1;

template <typename R>
constexpr bool kHasDelegates = std::is_same_v<R, Group> || std::is_same_v<R, Server>;

template <typename R>
bool isKey(const std::string& name)
{
    const auto& fields = Kind<R>::kFields;
    return (kHasDelegates<R> && name == "delegate") ||
           std::any_of(fields.begin(), fields.end(), [&name](const Field<R>& field) { return name == field.name; });
}

// prefix: path of the object within its record, with a dot at its end; empty for the record itself.
template <typename IsKnown>
void checkKeys(const Json::Value& jObject, const std::string& prefix, IsKnown&& isKnown)
{
    for (auto member = jObject.begin(); member != jObject.end(); ++member) {
        const std::string name = member.name();
        requireValid(isKnown(name), prefix + name, "a key that fleet files do not have");
    }
}

// Reads the members that only the store and its exports set. A missing one stays 0.
template <typename R>
void parseStoreManaged(const Json::Value& jRecord, R& record)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if (field.kind != FieldKind::storeManaged || jRecord[field.name].isNull()) {
            continue;
        }
        const Json::Value& jValue = jRecord[field.name];
        requireValid(jValue.isInt64() && jValue.asInt64() >= 0 && jValue.asInt64() <= kHighestNumber, field.name,
                     "not from 0 to 2^62 - 1");
        record.*std::get<int64_t R::*>(field.member) = jValue.asInt64();
    }
}

void checkIdentity(const Json::Value&, AccountRow& account)
{
    requireValid(account.uid >= 0 && account.uid <= kHighestUid, "uid", "missing or not from 0 to 4294967294");
    requireValid(!account.name.empty(), "name", "missing or empty");
}

template <typename R>
void checkIdentity(const Json::Value& jRecord, const R& record)
{
    requireValid(record.id >= 1 && record.id <= kHighestNumber, "id", "missing or not from 1 to 2^62 - 1");
    requireValid(!jRecord["parent_id"].isNull(), "parent_id", "missing");
    checkName(record.name.c_str());
}

// Only the root group may omit its name and its parent.
void checkIdentity(const Json::Value& jRecord, Group& group)
{
    if (group.id != 0) {
        return checkIdentity<Group>(jRecord, group);
    }
    requireValid(group.parentId == 0, "parent_id", "the root group stays where it is");
    if (jRecord["name"].isNull()) {
        group.name = newFleet().groups[0].record.name;
    }
    checkName(group.name.c_str());
}

// Accepts every identifier, because checkFleet() looks them up later.
bool acceptAny(int64_t)
{
    return true;
}

// Refuses the keys that the store would drop: those with which an answer describes the policy for people.
void checkLinkKeys(const Json::Value& jLinks)
{
    const auto isKept = [](const std::string& name) { return name != "gpo_name" && name != "gpo_desc"; };
    checkKeys(jLinks, "linked_gpo.", [&](const std::string& name) { return isKept(name) && name != "gpo_id"; });
    for (Json::ArrayIndex i = 0; i < jLinks["order"].size(); ++i) {
        const Json::Value& jLink = jLinks["order"][i];
        const bool hasId = !jLink["id"].isNull();
        checkKeys(jLink, "linked_gpo.order[" + std::to_string(i) + "].",
                  [&](const std::string& name) { return isKept(name) && (name != "gpo_id" || !hasId); });
    }
}

void checkDelegateKeys(const Json::Value& jDelegates)
{
    for (Json::ArrayIndex i = 0; i < jDelegates.size(); ++i) {
        checkKeys(jDelegates[i], "delegate[" + std::to_string(i) + "].",
                  [](const std::string& name) { return name == "ugid" || name == "user_type"; });
    }
}

template <typename R>
void parseRelations(const Json::Value& jRecord, Entry<R>& entry)
{
    if (!jRecord["linked_gpo"].isNull()) {
        entry.links = linkIds(jRecord["linked_gpo"]);
        checkLinks(entry.links, acceptAny);
        checkLinkKeys(jRecord["linked_gpo"]);
    }
    if (!jRecord["delegate"].isNull()) {
        entry.delegates = delegateUgids(jRecord["delegate"], acceptAny);
        checkDelegateKeys(jRecord["delegate"]);
    }
}

template <typename R>
void parseSection(const Json::Value& jFleet, Section<R>& section)
{
    const Json::Value& jSection = jFleet[kSectionName<R>];
    requireValid(jSection.isNull() || jSection.isArray(), kSectionName<R>, "not an array");
    std::unordered_set<int64_t> ids;
    section.reserve(jSection.size());
    for (Json::ArrayIndex i = 0; i < jSection.size(); ++i) {
        requireValid(jSection[i].isObject(), kSectionName<R> + ("[" + std::to_string(i)) + "]", "not an object");
        Entry<R>& entry = section.emplace_back();
        entry.fileIndex = i;
        withPlaceInErrors(entry, [&] {
            parseEntry(jSection[i], entry);
            requireValid(ids.insert(idOf(entry.record)).second, Kind<R>::kFields[0].name,
                         "a record of the kind before has it too");
        });
    }
    std::sort(section.begin(), section.end(), hasLowerId<R>);
}

}  // namespace

template <typename R>
void parseEntry(const Json::Value& jRecord, Entry<R>& entry)
{
    checkKeys(jRecord, "", isKey<R>);
    assignMembers(jRecord, entry.record);
    parseStoreManaged(jRecord, entry.record);
    checkIdentity(jRecord, entry.record);
    if constexpr (kHasDelegates<R>) {
        parseRelations(jRecord, entry);
    }
    if constexpr (std::is_same_v<R, Policy>) {
        if (!entry.record.setting.empty()) {
            settingVersion(jRecord["setting"]);  // throws when there is none
        }
    }
}

template void parseEntry(const Json::Value&, Entry<AccountRow>&);
template void parseEntry(const Json::Value&, Entry<Group>&);
template void parseEntry(const Json::Value&, Entry<Policy>&);
template void parseEntry(const Json::Value&, Entry<Server>&);

Fleet parseFleet(const Json::Value& jFleet)
{
    requireValid(jFleet.isObject(), "fleet", "not an object");
    Fleet fleet;
    checkKeys(jFleet, "", [](const std::string& name) {
        return name == kSectionName<AccountRow> || name == kSectionName<Group> || name == kSectionName<Policy> ||
               name == kSectionName<Server>;
    });
    parseSection(jFleet, fleet.accounts);
    parseSection(jFleet, fleet.groups);
    parseSection(jFleet, fleet.policies);
    parseSection(jFleet, fleet.servers);
    return fleet;
}

}  // namespace store
