// What the three kinds of record have in common outside the database: allocation, release and conversion from and to
// JSON, written once over the kinds' tables of fields.
#include <algorithm>
#include <string_view>

#include "store/base/errors.h"
#include "store/nodes/listing_snapshot.h"
#include "store/records/json_text.h"
#include "store/records/records.h"

namespace store {
namespace {

template <typename R>
R* alloc()
{
    R* pRecord = nullptr;
    toErrno([&pRecord] { pRecord = new R; });
    return pRecord;
}

template <typename R>
void freeList(R** ppHead)
{
    if (ppHead == nullptr) {
        return;
    }
    const int saved = errno;
    releaseFromSnapshot(*ppHead);
    freeChain(*ppHead);
    *ppHead = nullptr;
    errno = saved;
}

// What a sender says about the group that was loaded: a null identifier would mean another one than it may think of,
// and its revision tells whether it knows the group as it is.
void checkSender(const Json::Value& jRecord, const Group& group)
{
    if (group.id == -1) {
        return;
    }
    requireValid(!jRecord.isMember("id") || !jRecord["id"].isNull(), "id", "null, which names no group");
    const Json::Value& jRevision = jRecord["revision"];
    if (jRevision.isNull()) {
        return;
    }
    requireValid(jRevision.isInt64(), "revision", "not a 64-bit integer");
    if (jRevision.asInt64() != group.revision) {
        throw changedSinceRead();
    }
}

void checkSender(const Json::Value&, const Server&) {}

template <typename R>
int jsonToStruct(const Json::Value& jRecord, R* pRecord)
{
    return toErrno([&] {
        requireArguments(pRecord);
        requireValid(jRecord.isObject(), "record", "not an object");
        checkSender(jRecord, *pRecord);
        R next(*pRecord);
        assignMembers(jRecord, next);
        *pRecord = next;
    });
}

bool isSearchArray(const Json::Value& jSearchArray)
{
    return jSearchArray.isNull() ||
           (jSearchArray.isArray() && std::all_of(jSearchArray.begin(), jSearchArray.end(),
                                                  [](const Json::Value& jName) { return jName.isString(); }));
}

bool isWanted(const Json::Value& jSearchArray, const char* szName)
{
    return jSearchArray.isNull() ||
           std::any_of(jSearchArray.begin(), jSearchArray.end(),
                       [szName](const Json::Value& jName) { return jName == Json::Value(Json::StaticString(szName)); });
}

// The members that every record of the kind has, all but its JSON texts, in the order of their names.
template <typename R>
struct JsonTemplate {
    // Where a member's value comes from; none: the same number for the whole kind, which the blank object holds.
    std::map<std::string_view, const Field<R>*> members;
    Json::Value jBlank{Json::objectValue};

    JsonTemplate()
    {
        static constexpr Field<R> kNodeId{"node_id", &R::id};
        members = {{kNodeId.name, &kNodeId}, {"node_type", nullptr}, {"parent_type", nullptr}};
        for (const Field<R>& field : Kind<R>::kFields) {
            if (field.kind == FieldKind::storeManaged || field.kind == FieldKind::plain) {
                members.emplace(field.name, &field);
            }
        }
        for (const auto& [name, pField] : members) {
            jBlank[Json::StaticString(name.data())] = Json::Value();
        }
        jBlank["node_type"] = Kind<R>::kType;
        jBlank["parent_type"] = VELQ_ZEM_TYPE_OU;
    }
};

template <typename R>
const JsonTemplate<R>& jsonTemplateOf()
{
    static const JsonTemplate<R> kOutline;
    return kOutline;
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

// The JSON texts become members, but for empty ones.
template <typename R>
void writeJsonTexts(const R& record, const Json::Value& jSearchArray, Json::Value& jOut)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if ((field.kind != FieldKind::json && field.kind != FieldKind::links) || !isWanted(jSearchArray, field.name)) {
            continue;
        }
        const VLIBCString& text = record.*std::get<VLIBCString R::*>(field.member);
        if (!text.empty()) {
            jOut[Json::StaticString(field.name)] =
                field.kind == FieldKind::links ? parseLinks(text.c_str()) : parseJson(text.c_str());
        }
    }
}

// All members: the blank object is copied and filled in passing, a fraction of the work of adding them one by one.
template <typename R>
Json::Value toJson(const R& record)
{
    Json::Value jRecord(jsonTemplateOf<R>().jBlank);
    auto value = jRecord.begin();
    for (const auto& [name, pField] : jsonTemplateOf<R>().members) {
        if (pField != nullptr) {
            *value = valueOf(record, *pField);
        }
        ++value;
    }
    return jRecord;
}

template <typename R>
Json::Value toJson(const R& record, const Json::Value& jSearchArray)
{
    Json::Value jRecord = toJson(record);
    for (const auto& [name, pField] : jsonTemplateOf<R>().members) {
        if (!isWanted(jSearchArray, name.data())) {
            jRecord.removeMember(name.data());
        }
    }
    return jRecord;
}

template <typename R>
int structToJson(const R* pRecord, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return toErrno([&] {
        requireArguments(pRecord);
        require(isSearchArray(jSearchArray), EINVAL, "members to convert: not an array of texts");
        require(jOut.isNull() || jOut.isObject(), EINVAL, "record: not an object");
        Json::Value jRecord = jSearchArray.isNull() ? toJson(*pRecord) : toJson(*pRecord, jSearchArray);
        writeJsonTexts(*pRecord, jSearchArray, jRecord);
        if (jOut.empty()) {
            jOut.swap(jRecord);
            return;
        }
        for (auto member = jRecord.begin(); member != jRecord.end(); ++member) {
            jOut[member.name()] = std::move(*member);
        }
    });
}

}  // namespace
}  // namespace store

using namespace store;

_tag_velq_zem_ou_* VELQZEMOuAlloc(void)
{
    return alloc<Group>();
}

_tag_velq_zem_kx_* VELQZEMKxAlloc(void)
{
    return alloc<Server>();
}

_tag_velq_zem_gpo_* VELQZEMGpoAlloc(void)
{
    return alloc<Policy>();
}

void VELQZEMOuFree(_tag_velq_zem_ou_* pOu)
{
    delete pOu;
}

void VELQZEMKxFree(_tag_velq_zem_kx_* pKx)
{
    delete pKx;
}

void VELQZEMGpoFree(_tag_velq_zem_gpo_* pGpo)
{
    delete pGpo;
}

void VELQZEMOuListFree(_tag_velq_zem_ou_** ppHead)
{
    freeList(ppHead);
}

void VELQZEMKxListFree(_tag_velq_zem_kx_** ppHead)
{
    freeList(ppHead);
}

void VELQZEMGpoListFree(_tag_velq_zem_gpo_** ppHead)
{
    freeList(ppHead);
}

int VELQZEMOuJsonToStruct(Json::Value& jRecord, _tag_velq_zem_ou_* pOu)
{
    return jsonToStruct(jRecord, pOu);
}

int VELQZEMKxJsonToStruct(Json::Value& jRecord, _tag_velq_zem_kx_* pKx)
{
    return jsonToStruct(jRecord, pKx);
}

int VELQZEMOuStructToJson(const _tag_velq_zem_ou_* pOu, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return structToJson(pOu, jSearchArray, jOut);
}

int VELQZEMKxStructToJson(const _tag_velq_zem_kx_* pKx, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return structToJson(pKx, jSearchArray, jOut);
}

int VELQZEMGpoStructToJson(const _tag_velq_zem_gpo_* pGpo, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return structToJson(pGpo, jSearchArray, jOut);
}

int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord)
{
    return toErrno([&] {
        require(jRecord.isNull() || jRecord.isObject(), EINVAL, "record: not an object");
        Json::Value jLinks;
        if (jValue.isArray()) {  // stands for the object that holds it as "order"
            jLinks["order"] = jValue;
        } else {
            jLinks = jValue;
        }
        Json::Value& jWritten = jRecord["linked_gpo"] = std::move(jLinks);
        requireValid(jWritten.isObject(), "linked_gpo", "neither an object nor an array");
        linkIds(jWritten);
    });
}
