// Reads linked policies from the store and writes their names and descriptions into the nodes' links.
#include "tree/linked_policies.h"

#include <cstring>
#include <memory>

#include "frame/failure_log.h"
#include "frame/json_read.h"
#include "platform/velq_zem.h"

namespace {

// The library does not copy a key of this type into every node.
const Json::StaticString szLinkedGpo("linked_gpo");
const Json::StaticString szOrder("order");
const Json::StaticString szId("id");
const Json::StaticString szGpoId("gpo_id");
const Json::StaticString szGpoName("gpo_name");
const Json::StaticString szGpoDesc("gpo_desc");
const Json::StaticString szLinked("linked");

// Returns the node's link entries, or null if there are none. The lookups add missing members as null, and the answer
// contains them.
Json::Value* find_links(Json::Value& node)
{
    Json::Value& jLinkedGpo = node[szLinkedGpo];
    if (jLinkedGpo.empty() || !jLinkedGpo.isObject()) {
        return NULL;
    }
    Json::Value& jOrder = jLinkedGpo[szOrder];
    return jOrder.empty() || !jOrder.isArray() ? NULL : &jOrder;
}

PolicyIndex index_policies(Json::Value& jGpoArray)
{
    PolicyIndex index;
    if (!jGpoArray.isArray()) {
        return index;
    }
    index.reserve(jGpoArray.size());
    for (Json::Value& jGpo : jGpoArray) {
        int64_t id = 0;
        if (jGpo.isObject() && 0 == read_int64(jGpo[szId], &id)) {
            index.emplace(id, &jGpo);
        }
    }
    return index;
}

void mark_linked(int64_t gpoId, Json::Value& jGpoArray, std::optional<PolicyIndex>& index)
{
    if (!index) {
        index = index_policies(jGpoArray);
    }
    const auto range = index->equal_range(gpoId);
    for (auto it = range.first; it != range.second; ++it) {
        (*it->second)[szLinked] = true;
    }
    index->erase(range.first, range.second);  // they are marked now; other links to them need not do it again
}

// Reads the policy's name and description; one that cannot be read stays null.
int read_policy(int64_t gpoId, _tag_velq_zem_gpo_* pGpo, Json::Value* pjName, Json::Value* pjDesc)
{
    char szBuf[4096];

    if (0 > VELQZEMGpoGet(gpoId, pGpo)) {
        return log_access_denied("0 >VELQZEMGpoGet(gpoId, pGpo)");
    }
    memset(szBuf, 0, sizeof(szBuf));
    if (0 > VELQZEMGpoItemGetName(szBuf, sizeof(szBuf), pGpo)) {
        return log_access_denied("0 > VELQZEMGpoItemGetName(_SAS(szBuf), pGpo)");
    }
    *pjName = szBuf;

    memset(szBuf, 0, sizeof(szBuf));
    if (0 > VELQZEMGpoItemGetDescription(szBuf, sizeof(szBuf), pGpo)) {
        return log_access_denied("0 > VELQZEMGpoItemGetDescription(_SAS(szBuf), pGpo)");
    }
    *pjDesc = szBuf;
    return 0;
}

// Returns an object with the members of a resolved link, all null.
Json::Value make_resolved_link()
{
    Json::Value jLink(Json::objectValue);
    jLink[szGpoDesc] = jLink[szGpoId] = jLink[szGpoName] = Json::Value();
    return jLink;
}

// Made when the module is loaded: a constant inside the function would be made in its first call, under a lock.
const Json::Value jResolvedLink = make_resolved_link();

// Adds the policy's identifier, name and description to the entry as far as known; with all three, removes "id".
void write_link(int64_t gpoId, Json::Value& jName, Json::Value& jDesc, Json::Value& jLink)
{
    if (1 == jLink.size() && !jDesc.isNull()) {  // the entry holds only "id": filling a copy is faster
        jLink = jResolvedLink;
        auto it = jLink.begin();  // the members are sorted by name: gpo_desc, gpo_id, gpo_name
        (it++)->swap(jDesc);
        *it++ = Json::Value(gpoId);
        it->swap(jName);
        return;
    }
    jLink[szGpoId] = Json::Value(gpoId);
    if (!jName.isNull()) {
        jLink[szGpoName].swap(jName);
    }
    if (!jDesc.isNull()) {
        jLink[szGpoDesc].swap(jDesc);
        jLink.removeMember("id");
    }
}

// Resolves one entry as far as the store can read its policy; a failure does not affect the node's other links.
void resolve_link(Json::Value& jLink, Json::Value& jGpoArray, std::optional<PolicyIndex>& index,
                  _tag_velq_zem_gpo_* pGpo)
{
    Json::Value jName;
    Json::Value jDesc;
    Json::Value* pjId = jLink.isObject() ? &jLink[szId] : NULL;
    int64_t gpoId = 0;

    if (NULL == pjId || pjId->isNull() || 0 > read_int64(*pjId, &gpoId)) {
        log_access_denied("(*pjGpoLink)[i][\"id\"].isNull()");
        return;
    }
    mark_linked(gpoId, jGpoArray, index);
    read_policy(gpoId, pGpo, &jName, &jDesc);
    write_link(gpoId, jName, jDesc, jLink);
}

}  // namespace

int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray)
{
    std::optional<PolicyIndex> index;
    return get_gpo_info_by_node(node, jGpoArray, index);
}

int get_gpo_info_by_node(Json::Value& node, Json::Value& jGpoArray, std::optional<PolicyIndex>& index)
{
    if (!node.isObject()) {
        return log_bad_parameter();
    }
    Json::Value* pjLinks = find_links(node);
    if (NULL == pjLinks) {
        return 0;
    }
    for (Json::Value& jLink : *pjLinks) {
        const std::unique_ptr<_tag_velq_zem_gpo_, void (*)(_tag_velq_zem_gpo_*)> pGpo(VELQZEMGpoAlloc(),
                                                                                      VELQZEMGpoFree);
        if (NULL == pGpo) {
            return log_failed_call("NULL == (pGpo = VELQZEMGpoAlloc())");
        }
        resolve_link(jLink, jGpoArray, index, pGpo.get());
    }
    return 0;
}
