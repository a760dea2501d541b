// Allocation, release and JSON conversion of the three kinds of record.
#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>

#include "standin/store/json_text.h"
#include "standin/store/snapshot.h"

namespace standin {
namespace {

template <class R>
R* alloc()
{
    R* pRecord = new (std::nothrow) R;
    if (pRecord == nullptr) {
        errno = ENOMEM;
    }
    return pRecord;
}

template <class R>
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

template <class R>
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

const Json::StaticString kOrder("order");
const Json::StaticString kId("id");

// Reads links in the one form that most have, {"order":[{"id":N},...]} without a space, several times as fast as the
// JSON library. Returns false, jLinks of no use, for any other text.
bool readPlainLinks(std::string_view text, Json::Value& jLinks)
{
    constexpr std::string_view kBegin = "{\"order\":[";
    constexpr std::string_view kBefore = "{\"id\":";
    if (!text.starts_with(kBegin) || !text.ends_with("]}")) {
        return false;
    }
    text = text.substr(kBegin.size(), text.size() - kBegin.size() - 2);
    jLinks = Json::Value(Json::objectValue);
    Json::Value& jOrder = jLinks[kOrder] = Json::Value(Json::arrayValue);
    while (text.starts_with(kBefore)) {
        int64_t id = 0;
        const char* pEnd = text.data() + text.size();
        const auto [pStop, error] = std::from_chars(text.data() + kBefore.size(), pEnd, id);
        if (error != std::errc() || pStop == pEnd || *pStop != '}') {
            return false;
        }
        jOrder.append(Json::Value(Json::objectValue))[kId] = Json::Value(Json::Int64{id});
        text.remove_prefix(static_cast<size_t>(pStop + 1 - text.data()));
        if (text.empty()) {
            return true;
        }
        if (!text.starts_with(",{")) {
            return false;
        }
        text.remove_prefix(1);
    }
    return false;
}

template <class R>
void writeField(const Field<R>& field, const R& record, Json::Value& jOut)
{
    const Json::StaticString key(field.name);
    if (field.number) {
        jOut[key] = Json::Value(static_cast<Json::Int64>(record.*field.number));
    } else if (field.flag) {
        jOut[key] = Json::Value(record.*field.flag);
    } else if (field.rule == Rule::plain) {
        jOut[key] = Json::Value((record.*field.text).c_str());
    } else if (!(record.*field.text).empty()) {
        const char* szText = (record.*field.text).c_str();
        Json::Value& jValue = jOut[key];
        if (field.rule != Rule::links || !readPlainLinks(szText, jValue)) {
            jValue = parseJson(szText);
        }
    }
}

template <class R>
Json::Value toJson(const R& record, const Json::Value& jSearchArray)
{
    Json::Value jRecord(Json::objectValue);
    for (const Field<R>& field : Kind<R>::fields) {
        if (isWanted(jSearchArray, field.name)) {
            writeField(field, record, jRecord);
        }
    }
    const std::pair<const char*, Json::Int64> derived[] = {
        {"node_id", record.id}, {"node_type", Kind<R>::type}, {"parent_type", VELQ_ZEM_TYPE_OU}};
    for (const auto& [szName, value] : derived) {
        if (isWanted(jSearchArray, szName)) {
            jRecord[Json::StaticString(szName)] = Json::Value(value);
        }
    }
    return jRecord;
}

template <class R>
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

// The links of a request: an array stands for the object that holds it as "order".
int VELQZEMHttpReqToJsonForLinkedGpo(const Json::Value& jValue, Json::Value& jRecord)
{
    return guarded([&] {
        require(jRecord.isNull() || jRecord.isObject(), EINVAL);
        Json::Value jLinks;
        if (jValue.isArray()) {
            jLinks["order"] = jValue;
        } else {
            jLinks = jValue;
        }
        Json::Value& jWritten = jRecord["linked_gpo"] = std::move(jLinks);
        demand(jWritten.isObject(), "linked_gpo", "neither an object nor an array");
        linkIds(jWritten);
    });
}
