// Converts records from and to JSON objects. Objects are made from a template for each kind, because a tree's answer
// holds thousands of them.
#include "store/records/record_json.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <string_view>

#include "store/base/errors.h"
#include "store/records/json_text.h"
#include "store/records/policy_links.h"
#include "store/records/records.h"

namespace store {
namespace {

bool isJson(FieldKind kind)
{
    return kind == FieldKind::json || kind == FieldKind::links;
}

// --- From JSON: each assign() sets the field's target from the value and throws InvalidInput.

template <typename R>
void assign(const Field<R>& field, const Json::Value& jValue, int64_t& target)
{
    requireValid(jValue.isInt64(), field.name, "not a 64-bit integer");
    target = jValue.asInt64();
}

template <typename R>
void assign(const Field<R>& field, const Json::Value& jValue, int32_t& target)
{
    const bool isBit = jValue.isBool() || (jValue.isInt() && (jValue.asInt() == 0 || jValue.asInt() == 1));
    requireValid(isBit, field.name, "neither a boolean nor 0 or 1");
    target = jValue.asBool() ? 1 : 0;
}

VLIBCString plainText(const char* szName, const Json::Value& jValue)
{
    const char* begin = nullptr;
    const char* end = nullptr;
    requireValid(jValue.isString() && jValue.getString(&begin, &end), szName, "not a text");
    const std::string text(begin, end);
    requireValid(isPlainText(text), szName, "a text that is not UTF-8 or holds a NUL");
    return VLIBCString(text);
}

VLIBCString jsonText(FieldKind kind, const Json::Value& jValue)
{
    if (kind == FieldKind::links) {
        return linksText(jValue);
    }
    return jValue.isNull() ? VLIBCString() : VLIBCString(writeStorableJson(jValue));
}

template <typename R>
void assign(const Field<R>& field, const Json::Value& jValue, VLIBCString& target)
{
    try {
        target = isJson(field.kind) ? jsonText(field.kind, jValue) : plainText(field.name, jValue);
    } catch (const Refusal& refusal) {
        throw InvalidInput(field.name, refusal.what(), refusal.reason);
    }
}

// --- To JSON

// An object with the members that every record of the kind has, all but its JSON texts.
template <typename R>
struct JsonTemplate {
    // The field of each member, in the order of the object; null for a member that has one value for the whole kind.
    std::map<std::string_view, const Field<R>*> members;
    Json::Value jObject{Json::objectValue};

    JsonTemplate()
    {
        static constexpr Field<R> kNodeId{"node_id", &R::id};
        members = {{kNodeId.name, &kNodeId}, {"node_type", nullptr}, {"parent_type", nullptr}};
        for (const Field<R>& field : Kind<R>::kFields) {
            if (!isJson(field.kind)) {
                members.emplace(field.name, &field);
            }
        }
        for (const auto& [name, pField] : members) {
            jObject[Json::StaticString(name.data())] = Json::Value();
        }
        jObject["node_type"] = Kind<R>::kType;
        jObject["parent_type"] = VELQ_ZEM_TYPE_OU;
    }
};

template <typename R>
const JsonTemplate<R>& templateOf()
{
    static const JsonTemplate<R> kTemplate;
    return kTemplate;
}

bool isWanted(const Json::Value& jNames, const char* szName)
{
    return jNames.isNull() || std::any_of(jNames.begin(), jNames.end(), [szName](const Json::Value& jName) {
               return jName == Json::Value(Json::StaticString(szName));
           });
}

template <typename R>
Json::Value valueOf(const R& record, const Field<R>& field)
{
    if (const auto* pNumber = std::get_if<int64_t R::*>(&field.member)) {
        return Json::Value(Json::Int64{record.**pNumber});
    }
    if (const auto* pText = std::get_if<VLIBCString R::*>(&field.member)) {
        return Json::Value((record.**pText).c_str());
    }
    return Json::Value(record.*std::get<int32_t R::*>(field.member));
}

// Copies the template and sets its values in their order, which takes a fraction of the time of adding members one by
// one.
template <typename R>
Json::Value filledTemplate(const R& record)
{
    Json::Value jRecord(templateOf<R>().jObject);
    auto value = jRecord.begin();
    for (const auto& [name, pField] : templateOf<R>().members) {
        if (pField != nullptr) {
            *value = valueOf(record, *pField);
        }
        ++value;
    }
    return jRecord;
}

template <typename R>
void removeUnwanted(const Json::Value& jNames, Json::Value& jRecord)
{
    for (const auto& [name, pField] : templateOf<R>().members) {
        if (!isWanted(jNames, name.data())) {
            jRecord.removeMember(name.data());
        }
    }
}

template <typename R>
void addJsonTexts(const R& record, const Json::Value& jNames, Json::Value& jRecord)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if (!isJson(field.kind) || !isWanted(jNames, field.name)) {
            continue;
        }
        const VLIBCString& text = record.*std::get<VLIBCString R::*>(field.member);
        if (!text.empty()) {
            jRecord[Json::StaticString(field.name)] =
                field.kind == FieldKind::links ? parseLinks(text.c_str()) : parseJson(text.c_str());
        }
    }
}

}  // namespace

template <typename R>
void assignMembers(const Json::Value& jRecord, R& record)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        const Json::Value* pValue = jRecord.find(field.name, field.name + std::strlen(field.name));
        const bool isAbsent = pValue == nullptr || (pValue->isNull() && !isJson(field.kind));
        if (field.kind == FieldKind::storeManaged || isAbsent) {
            continue;
        }
        std::visit([&](auto member) { assign(field, *pValue, record.*member); }, field.member);
    }
}

template <typename R>
Json::Value toJson(const R& record, const Json::Value& jNames)
{
    Json::Value jRecord = filledTemplate(record);
    if (!jNames.isNull()) {
        removeUnwanted<R>(jNames, jRecord);
    }
    addJsonTexts(record, jNames, jRecord);
    return jRecord;
}

template void assignMembers(const Json::Value&, Group&);
template void assignMembers(const Json::Value&, Server&);
template void assignMembers(const Json::Value&, Policy&);
template void assignMembers(const Json::Value&, AccountRow&);

template Json::Value toJson(const Group&, const Json::Value&);
template Json::Value toJson(const Server&, const Json::Value&);
template Json::Value toJson(const Policy&, const Json::Value&);

}  // namespace store
