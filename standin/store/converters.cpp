// What the three kinds of record have in common outside the database: allocation, release and conversion from and to
// JSON, written once over the kinds' tables of fields.
#include <algorithm>
#include <new>

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

// writeMember: the field becomes a member of jOut, but for an empty JSON text.

template <typename R>
void writeMember(const Field<R>& field, int64_t value, Json::Value& jOut)
{
    jOut[Json::StaticString(field.name)] = Json::Value(static_cast<Json::Int64>(value));
}

template <typename R>
void writeMember(const Field<R>& field, const VLIBCString& text, Json::Value& jOut)
{
    const Json::StaticString key(field.name);
    if (field.rule == Rule::plain) {
        jOut[key] = Json::Value(text.c_str());
    } else if (!text.empty()) {
        jOut[key] = parseJson(text.c_str());
    }
}

template <typename R>
Json::Value toJson(const R& record, const Json::Value& jSearchArray)
{
    Json::Value jRecord(Json::objectValue);
    for (const Field<R>& field : Kind<R>::kFields) {
        if (isWanted(jSearchArray, field.name)) {
            std::visit([&](auto member) { writeMember(field, record.*member, jRecord); }, field.member);
        }
    }
    const std::pair<const char*, Json::Int64> derived[] = {
        {"node_id", record.id}, {"node_type", Kind<R>::kType}, {"parent_type", VELQ_ZEM_TYPE_OU}};
    for (const auto& [szName, value] : derived) {
        if (isWanted(jSearchArray, szName)) {
            jRecord[Json::StaticString(szName)] = Json::Value(value);
        }
    }
    return jRecord;
}

template <typename R>
int structToJson(const R* pRecord, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return guarded([&] {
        require(pRecord != nullptr && isSearchArray(jSearchArray) && (jOut.isNull() || jOut.isObject()), EINVAL);
        Json::Value jRecord = toJson(*pRecord, jSearchArray);
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
