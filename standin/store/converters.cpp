// What the three kinds of record have in common outside the database: allocation, release and conversion from and to
// JSON, written once over the kinds' tables of fields.
#include <algorithm>
#include <new>
#include <string_view>

#include "standin/store/errors.h"
#include "standin/store/json_text.h"
#include "standin/store/records.h"
#include "standin/store/snapshot.h"

namespace standin {
namespace {

template <typename R>
R* alloc()
{
    R* pRecord = new (std::nothrow) R;
    if (pRecord == nullptr) {
        errno = ENOMEM;
    }
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

template <typename R>
int jsonToStruct(const Json::Value& jRecord, R* pRecord)
{
    return guarded([&] {
        require(pRecord != nullptr, EINVAL);
        demand(jRecord.isObject(), "record", "not an object");
        R next(*pRecord);
        layMembers(jRecord, next);
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

// What a member's value is made from: a field of the record, or a number that is the same for the whole kind.
template <typename R>
using Source = std::variant<int64_t R::*, int32_t R::*, VLIBCString R::*, int64_t>;

// The members that every record of the kind has, all but its JSON texts.
template <typename R>
struct Outline {
    std::map<std::string_view, Source<R>> sources = {
        {"node_id", &R::id}, {"node_type", int64_t{Kind<R>::kType}}, {"parent_type", int64_t{VELQ_ZEM_TYPE_OU}}};
    Json::Value jBlank{Json::objectValue};  // an object of these members, in the order of the sources

    Outline()
    {
        for (const Field<R>& field : Kind<R>::kFields) {
            if (field.rule == Rule::own || field.rule == Rule::plain) {
                std::visit([&](auto member) { sources.emplace(field.name, member); }, field.member);
            }
        }
        for (const auto& [name, source] : sources) {
            jBlank[Json::StaticString(name.data())] = Json::Value();
        }
    }
};

template <typename R>
const Outline<R>& outlineOf()
{
    static const Outline<R> kOutline;
    return kOutline;
}

template <typename R>
Json::Value valueOf(const R& record, const Source<R>& source)
{
    if (const auto* pNumber = std::get_if<int64_t R::*>(&source)) {
        return Json::Value(Json::Int64{record.**pNumber});
    }
    if (const auto* pText = std::get_if<VLIBCString R::*>(&source)) {
        return Json::Value((record.**pText).c_str());
    }
    if (const auto* pFlag = std::get_if<int32_t R::*>(&source)) {
        return Json::Value(record.**pFlag);
    }
    return Json::Value(Json::Int64{std::get<int64_t>(source)});
}

// The JSON texts become members, but for empty ones.
template <typename R>
void writeJsonTexts(const R& record, const Json::Value& jSearchArray, Json::Value& jOut)
{
    for (const Field<R>& field : Kind<R>::kFields) {
        if ((field.rule != Rule::json && field.rule != Rule::links) || !isWanted(jSearchArray, field.name)) {
            continue;
        }
        const VLIBCString& text = record.*std::get<VLIBCString R::*>(field.member);
        if (!text.empty()) {
            jOut[Json::StaticString(field.name)] =
                field.rule == Rule::links ? parseLinks(text.c_str()) : parseJson(text.c_str());
        }
    }
}

// All members: the blank object is copied and filled in passing, a fraction of the work of adding them one by one.
template <typename R>
Json::Value toJson(const R& record)
{
    Json::Value jRecord(outlineOf<R>().jBlank);
    auto member = jRecord.begin();
    for (const auto& [name, source] : outlineOf<R>().sources) {
        *member = valueOf(record, source);
        ++member;
    }
    return jRecord;
}

template <typename R>
Json::Value toJson(const R& record, const Json::Value& jSearchArray)
{
    Json::Value jRecord(Json::objectValue);
    for (const auto& [name, source] : outlineOf<R>().sources) {
        if (isWanted(jSearchArray, name.data())) {
            jRecord[Json::StaticString(name.data())] = valueOf(record, source);
        }
    }
    return jRecord;
}

template <typename R>
int structToJson(const R* pRecord, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return guarded([&] {
        require(pRecord != nullptr && isSearchArray(jSearchArray) && (jOut.isNull() || jOut.isObject()), EINVAL);
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
}  // namespace standin

using namespace standin;

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
    return guarded([&] {
        require(jRecord.isNull() || jRecord.isObject(), EINVAL);
        Json::Value jLinks;
        if (jValue.isArray()) {  // stands for the object that holds it as "order"
            jLinks["order"] = jValue;
        } else {
            jLinks = jValue;
        }
        Json::Value& jWritten = jRecord["linked_gpo"] = std::move(jLinks);
        demand(jWritten.isObject(), "linked_gpo", "neither an object nor an array");
        linkIds(jWritten);
    });
}
