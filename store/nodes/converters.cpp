// Converts groups, servers and policies from and to JSON, without the database.
#include <algorithm>
#include <utility>

#include "store/base/errors.h"
#include "store/records/policy_links.h"
#include "store/records/record_checks.h"
#include "store/records/record_json.h"
#include "store/records/records.h"

namespace store {
namespace {

// Checks that the record is meant for the group or server that was loaded, in the revision that its sender knows. A
// null identifier is refused, because it would pass for the root group's.
template <typename R>
void checkLoaded(const Json::Value& jRecord, const R& loaded)
{
    if (loaded.id == -1) {
        return;
    }
    requireValid(!jRecord.isMember("id") || !jRecord["id"].isNull(), "id",
                 std::string("null, which names no ") + Kind<R>::kName, Reason::missing);
    const Json::Value& jRevision = jRecord["revision"];
    if (jRevision.isNull()) {
        return;
    }
    requireValid(jRevision.isInt64(), "revision", "not a 64-bit integer");
    if (jRevision.asInt64() != loaded.revision) {
        throw changedSinceRead();
    }
}

template <typename R>
int jsonToStruct(const Json::Value& jRecord, R* pRecord)
{
    return toErrno([&] {
        requireArguments(pRecord);
        require(jRecord.isObject(), EINVAL, "record: not an object");
        checkLoaded(jRecord, *pRecord);
        R next(*pRecord);
        assignMembers(jRecord, next);
        checkLengths(next, *pRecord, std::as_const(jRecord)["linked_gpo"]["order"].size());
        *pRecord = next;
    });
}

bool isSearchArray(const Json::Value& jSearchArray)
{
    return jSearchArray.isNull() ||
           (jSearchArray.isArray() && std::all_of(jSearchArray.begin(), jSearchArray.end(),
                                                  [](const Json::Value& jName) { return jName.isString(); }));
}

template <typename R>
int structToJson(const R* pRecord, const Json::Value& jSearchArray, Json::Value& jOut)
{
    return toErrno([&] {
        requireArguments(pRecord);
        require(isSearchArray(jSearchArray), EINVAL, "members to convert: not an array of texts");
        require(jOut.isNull() || jOut.isObject(), EINVAL, "record: not an object");
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
}  // namespace store

using namespace store;

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
        if (jValue.isArray()) {
            jLinks["order"] = jValue;
        } else {
            jLinks = jValue;
        }
        Json::Value& jWritten = jRecord["linked_gpo"] = std::move(jLinks);
        requireValid(jWritten.isObject(), "linked_gpo", "neither an object nor an array");
        linkIds(jWritten);
    });
}
