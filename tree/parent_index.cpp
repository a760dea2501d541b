// Looks parents up in an index of all nodes and moves each node below its parent.
#include "tree/parent_index.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "frame/json_read.h"
#include "platform/velq_zem.h"
#include "tree/attached_marker.h"
#include "tree/prefetch.h"

namespace {

constexpr size_t noNode = SIZE_MAX;

// The library does not copy a key of this type into every node.
const Json::StaticString szChildren("children");
const Json::StaticString szExpanded("expanded");
const Json::StaticString szLoaded("loaded");

typedef std::unordered_map<NodeKey, size_t, decltype([](const NodeKey& key) {
                               return static_cast<size_t>(key.second) * 31 + static_cast<size_t>(key.first);
                           })>
    NodeIndex;

// All nodes, numbered from 0: groups first, then servers, then policies.
struct Forest {
    std::vector<const NodeEntry*> nodes;
    NodeIndex index;              // number of each node, noNode if it cannot be a parent
    std::vector<size_t> parents;  // number of each node's parent, noNode for a top-level node
};

// The members of a node that nesting reads, null where they are missing.
struct NestingMembers {
    const Json::Value* pjChildren = NULL;
    const Json::Value* pjMarker = NULL;
    const Json::Value* pjId = NULL;
    const Json::Value* pjType = NULL;
    const Json::Value* pjParentId = NULL;
    const Json::Value* pjParentType = NULL;
};

// Sorted by name, like the members of an object.
constexpr std::pair<std::string_view, const Json::Value * NestingMembers::*> nestingMembers[] = {
    {"children", &NestingMembers::pjChildren},
    {szAttachedMarker, &NestingMembers::pjMarker},
    {"id", &NestingMembers::pjId},
    {"node_type", &NestingMembers::pjType},
    {"parent_id", &NestingMembers::pjParentId},
    {"parent_type", &NestingMembers::pjParentType},
};

// Goes through the node's members and the sorted names in step, which takes a third of the time of separate lookups.
NestingMembers find_nesting_members(const Json::Value& jNode)
{
    NestingMembers found;
    const auto* pNext = std::begin(nestingMembers);
    for (auto it = jNode.begin(), end = jNode.end(); it != end && pNext != std::end(nestingMembers); ++it) {
        const char* szEnd = NULL;
        const char* szName = it.memberName(&szEnd);
        const std::string_view name(szName, static_cast<size_t>(szEnd - szName));
        while (pNext != std::end(nestingMembers) && pNext->first < name) {
            ++pNext;
        }
        if (pNext != std::end(nestingMembers) && pNext->first == name) {
            found.*(pNext->second) = &*it;
        }
    }
    return found;
}

// Reads the node's own key and its parent's.
int read_keys(const NestingMembers& members, NodeEntry* pEntry)
{
    if (NULL == members.pjId || NULL == members.pjType || NULL == members.pjParentId ||
        0 > read_int(*members.pjType, &pEntry->self.first) || 0 > read_int64(*members.pjId, &pEntry->self.second) ||
        0 > read_int64(*members.pjParentId, &pEntry->parent.second)) {
        return -1;
    }
    pEntry->canBeParent = Json::intValue == members.pjType->type();
    pEntry->parent.first = VELQ_ZEM_TYPE_OU;
    if (NULL == members.pjParentType || members.pjParentType->isNull()) {
        return 0;
    }
    return read_int(*members.pjParentType, &pEntry->parent.first);
}

// Fills in the keys. Returns -1 if the node makes the table unusable.
int read_entry(const Json::Value& jNode, NodeEntry* pEntry)
{
    if (!jNode.isObject()) {
        return -1;
    }
    const NestingMembers members = find_nesting_members(jNode);
    const bool hasChildren = NULL != members.pjChildren && !members.pjChildren->isNull();
    return hasChildren || NULL != members.pjMarker ? -1 : read_keys(members, pEntry);
}

// Numbers the nodes and adds them to the index. Returns -1 if two of them have the same key.
int index_nodes(const std::vector<NodeEntry>& entries, Forest& forest)
{
    for (const NodeEntry& entry : entries) {
        const size_t number = entry.canBeParent ? forest.nodes.size() : noNode;
        forest.nodes.push_back(&entry);
        if (!forest.index.emplace(entry.self, number).second) {
            return -1;
        }
    }
    return 0;
}

// Finds the parents of one array, the nodes begin to end - 1. A parent is any node with a number below known, or an
// earlier node of the array that has a parent itself, because only then is it in the tree already.
void find_parents(size_t begin, size_t end, size_t known, Forest& forest)
{
    for (size_t node = begin; node < end; ++node) {
        const auto it = forest.index.find(forest.nodes[node]->parent);
        const size_t parent = forest.index.end() == it ? noNode : it->second;
        const bool isAttached = parent < node && noNode != forest.parents[parent];
        forest.parents.push_back(parent < known || isAttached ? parent : noNode);
    }
}

// Moves the last node of each cycle to the top level. All others of its cycle are attached below it before its turn
// comes, and a node is never attached below itself.
void break_cycles(std::vector<size_t>& parents)
{
    std::vector<size_t> metFrom(parents.size(), noNode);  // the node from which each node was first reached
    for (size_t start = 0; start < parents.size(); ++start) {
        size_t node = start;
        while (noNode != node && noNode == metFrom[node]) {
            metFrom[node] = start;
            node = parents[node];
        }
        if (noNode == node || start != metFrom[node]) {
            continue;
        }
        size_t last = node;
        for (size_t other = parents[node]; other != node; other = parents[other]) {
            last = std::max(last, other);
        }
        parents[last] = noNode;
    }
}

// Sets the node's display members except "children".
void set_display_members(const NodeEntry& entry, bool isLeaf)
{
    entry.pjNode->removeMember("id");
    *entry.pjExpanded = !isLeaf;
    if (isLeaf) {
        (*entry.pjNode)[szLoaded] = true;
    }
}

// Moves every node to the end of its parent's children. The children that it has so far move with it, and its array of
// children keeps its address for those that follow.
void attach_nodes(const Forest& forest, Json::Value& jData)
{
    std::vector<bool> isParent(forest.nodes.size());
    for (const size_t parent : forest.parents) {
        if (noNode != parent) {
            isParent[parent] = true;
        }
    }
    for (size_t node = 0; node < forest.nodes.size(); ++node) {
        const NodeEntry& entry = *forest.nodes[node];
        const size_t parent = forest.parents[node];
        if (node + 1 < forest.nodes.size()) {
            prefetch_around(forest.nodes[node + 1]->pjExpanded);
        }
        set_display_members(entry, !isParent[node]);
        Json::Value& jSiblings = noNode == parent ? jData : *forest.nodes[parent]->pjChildren;
        jSiblings.append(std::move(*entry.pjNode));
    }
}

}  // namespace

void add_node_entry(Json::Value& jNode, std::vector<NodeEntry> NodeTable::*pKind, NodeTable* pTable)
{
    NodeEntry entry;
    if (0 > read_entry(jNode, &entry)) {
        pTable->isUsable = false;
        return;
    }
    entry.pjNode = &jNode;
    entry.pjChildren = &jNode[szChildren];
    entry.pjExpanded = &jNode[szExpanded];
    (pTable->*pKind).push_back(entry);
}

int nest_by_index(const NodeTable& table, Json::Value& jData)
{
    Forest forest;
    const size_t servers = table.groups.size();
    const size_t policies = servers + table.servers.size();
    const size_t end = policies + table.policies.size();

    if (EACCES == errno || !table.isUsable) {
        return -1;
    }
    forest.nodes.reserve(end);
    forest.index.reserve(end);
    forest.parents.reserve(end);
    if (0 > index_nodes(table.groups, forest) || 0 > index_nodes(table.servers, forest) ||
        0 > index_nodes(table.policies, forest)) {
        return -1;
    }
    find_parents(0, servers, servers, forest);
    break_cycles(forest.parents);
    find_parents(servers, policies, servers, forest);
    find_parents(policies, end, policies, forest);

    jData = Json::Value(Json::arrayValue);
    attach_nodes(forest, jData);
    return 0;
}
