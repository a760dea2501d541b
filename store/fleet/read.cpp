// A fleet file's records, each checked as far as it can be without the others. Keys that the format does not know are
// refused: a mistyped one would take something away from a record without a word.
#include <unordered_set>

#include "store/base/errors.h"
#include "store/fleet/fleet.h"
#include "store/records/json_text.h"

namespace store {
namespace {

constexpr int64_t kHighestNumber = INT64_MAX / 2;  // leaves room to count on from
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

// place: of the object within its record, with a dot at its end; empty for the record.
template <typename IsKey>
void checkKeys(const Json::Value& jObject, const std::string& place, IsKey&& isKnown)
{
    for (auto member = jObject.begin(); member != jObject.end(); ++member) {
        const std::string name = member.name();
        requireValid(isKnown(name), place + name, "a key that fleet files do not have");
    }
}

// What the store writes by itself comes with a file that was exported. An absent one stays 0.
template <typename R>
void takeOwn(const Json::Value& jRecord, R& record)
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

// The root group is the one that may leave its name and its parent open.
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

bool areAnyKnown(int64_t)
{
    return true;
}

// Of an entry of the links, the store keeps every member but those that an answer has for people.
void checkLinkKeys(const Json::Value& jLinks)
{
    const auto isKept = [](const std::string& name) { return name != "gpo_name" && name != "gpo_desc"; };
    checkKeys(jLinks, "linked_gpo.", [&](const std::string& name) { return isKept(name) && name != "gpo_id"; });
    for (Json::ArrayIndex i = 0; i < jLinks["order"].size(); ++i) {
        const Json::Value& jLink = jLinks["order"][i];
        const bool isNamedTwice = !jLink["id"].isNull();
        checkKeys(jLink, "linked_gpo.order[" + std::to_string(i) + "].",
                  [&](const std::string& name) { return isKept(name) && (name != "gpo_id" || !isNamedTwice); });
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
void readRelations(const Json::Value& jRecord, Entry<R>& entry)
{
    if (!jRecord["linked_gpo"].isNull()) {
        checkLinks(linkIds(jRecord["linked_gpo"]), areAnyKnown);
        checkLinkKeys(jRecord["linked_gpo"]);
    }
    if (!jRecord["delegate"].isNull()) {
        entry.delegates = delegateUgids(jRecord["delegate"], areAnyKnown);
        checkDelegateKeys(jRecord["delegate"]);
    }
}

template <typename R>
void readSection(const Json::Value& jFleet, Section<R>& section)
{
    const Json::Value& jSection = jFleet[kSection<R>];
    requireValid(jSection.isNull() || jSection.isArray(), kSection<R>, "not an array");
    std::unordered_set<int64_t> ids;
    section.reserve(jSection.size());
    for (Json::ArrayIndex i = 0; i < jSection.size(); ++i) {
        requireValid(jSection[i].isObject(), kSection<R> + ("[" + std::to_string(i)) + "]", "not an object");
        at<R>(i, 0, [&] {
            section.push_back(readEntry<R>(jSection[i]));
            requireValid(ids.insert(idOf(section.back().record)).second, Kind<R>::kFields[0].name,
                         "a record of the kind before has it too");
        });
        section.back().place = i;
    }
    std::sort(section.begin(), section.end(),
              [](const Entry<R>& one, const Entry<R>& other) { return idOf(one.record) < idOf(other.record); });
}

}  // namespace

template <typename R>
Entry<R> readEntry(const Json::Value& jRecord)
{
    Entry<R> entry;
    checkKeys(jRecord, "", isKey<R>);
    assignMembers(jRecord, entry.record);
    takeOwn(jRecord, entry.record);
    checkIdentity(jRecord, entry.record);
    if constexpr (kHasDelegates<R>) {
        readRelations(jRecord, entry);
    }
    if constexpr (std::is_same_v<R, Policy>) {
        if (!entry.record.setting.empty()) {
            settingVersion(jRecord["setting"]);
        }
    }
    return entry;
}

template Entry<AccountRow> readEntry(const Json::Value&);
template Entry<Group> readEntry(const Json::Value&);
template Entry<Policy> readEntry(const Json::Value&);
template Entry<Server> readEntry(const Json::Value&);

Fleet readFleet(const Json::Value& jFleet)
{
    requireValid(jFleet.isObject(), "fleet", "not an object");
    Fleet fleet;
    checkKeys(jFleet, "", [](const std::string& name) {
        return name == kSection<AccountRow> || name == kSection<Group> || name == kSection<Policy> ||
               name == kSection<Server>;
    });
    readSection(jFleet, fleet.accounts);
    readSection(jFleet, fleet.groups);
    readSection(jFleet, fleet.policies);
    readSection(jFleet, fleet.servers);
    return fleet;
}

}  // namespace store
