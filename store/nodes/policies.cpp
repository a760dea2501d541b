// Loads policies, from the snapshot of a listed tree where the thread keeps one, and stores the notices that make
// servers fetch their policies anew.
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>

#include "store/base/thread_state.h"
#include "store/base/utf8.h"
#include "store/nodes/listing_snapshot.h"
#include "store/records/record_checks.h"
#include "store/records/rows.h"
#include "store/rules/checks.h"

namespace store {
namespace {

// Copies as much of the text as fits, without cutting a character in two.
void copyText(char* szBuf, size_t cbBuf, const VLIBCString& text)
{
    const std::string_view copied = wholeCharacters(text.c_str(), cbBuf - 1);
    std::memcpy(szBuf, copied.data(), copied.size());
    szBuf[copied.size()] = '\0';
}

int copyItem(char* szBuf, size_t cbBuf, const Policy* pGpo, VLIBCString Policy::*text)
{
    return toErrno([&] {
        requireArguments(szBuf, pGpo);
        require(cbBuf > 0, EINVAL, "no room for a text");
        copyText(szBuf, cbBuf, pGpo->*text);
    });
}

int copyFromSnapshot(const ListingSnapshot& snapshot, int64_t id, Policy* pGpo)
{
    return toErrno([&] {
        requireArguments(pGpo);
        const auto found = snapshot.policies.find(id);
        if (found == snapshot.policies.end()) {
            throw noSuch<Policy>(id);
        }
        Policy* pNext = pGpo->pNext;
        *pGpo = found->second;
        pGpo->pNext = pNext;
    });
}

}  // namespace
}  // namespace store

using namespace store;

int VELQZEMGpoGet(int64_t id, _tag_velq_zem_gpo_* pGpo)
{
    const ListingSnapshot* pSnapshot = currentSnapshot();
    return pSnapshot != nullptr ? copyFromSnapshot(*pSnapshot, id, pGpo) : readRecord(id, pGpo);
}

int VELQZEMGpoItemGetName(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo)
{
    return copyItem(szBuf, cbBuf, pGpo, &Policy::name);
}

int VELQZEMGpoItemGetDescription(char* szBuf, size_t cbBuf, const _tag_velq_zem_gpo_* pGpo)
{
    return copyItem(szBuf, cbBuf, pGpo, &Policy::desc);
}

int VELQZEMGpoGetWithVersionConvert(Json::Value& jSetting, Json::Value& jUIVersion)
{
    return toErrno([&] {
        const int version = settingVersion(jSetting);
        const bool isVersion = jUIVersion.isObject() && std::as_const(jUIVersion)["major"].isInt();
        require(isVersion, EINVAL, "the version of the user interface has no 32-bit integer \"major\"");
        const Json::Value& jMajor = std::as_const(jUIVersion)["major"];
        if (version < jMajor.asInt()) {
            jSetting["version"] = jMajor.asInt();
        }
    });
}

int VELQZEMGpoNotifyFetch(uint32_t uid, int nodeType, int64_t id)
{
    const auto note = [&](soci::session& sql) {
        const bool canFetch = nodeType == VELQ_ZEM_TYPE_OU || nodeType == kServerType;
        require(canFetch, ENOENT, "node_type: neither a group nor a server");
        const bool isOwnChange = threadState().changedNodes.contains({nodeType, id});
        const Rights rights = isOwnChange ? Rights(sql, std::nullopt) : Rights(sql);
        rights.requireNode(nodeType, id);
        requireExisting(sql, rights, nodeType, id);
        change(sql,
               "INSERT INTO gpo_fetch (node_type, node_id, uid, mtime) VALUES (:type, :id, :uid, :mtime)"
               " ON CONFLICT (node_type, node_id) DO UPDATE SET uid = excluded.uid, mtime = excluded.mtime",
               nodeType, id, static_cast<int64_t>(uid), std::time(nullptr));
    };
    return toErrno([&] { inTransaction(accessForChange(threadState().changes), note); });
}
