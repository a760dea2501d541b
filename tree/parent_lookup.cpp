#include "tree/parent_lookup.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "frame/json_read.h"
#include "platform/velq_zem.h"
#include "tree/hung_marker.h"

namespace {

constexpr size_t noNode = SIZE_MAX;

// Keys of a static string are not copied for every node.
const Json::StaticString szChildren("children");
const Json::StaticString szExpanded("expanded");
const Json::StaticString szLoaded("loaded");

typedef std::unordered_map<NodeKey, size_t, decltype([](const NodeKey& key) {
                               return static_cast<size_t>(key.second) * 31 + static_cast<size_t>(key.first);
                           })>
    NodeIndex;

// All nodes, numbered from 0: the groups, then the servers, then the policies.
struct Forest {
    std::vector<const NodeLink*> nodes;
    NodeIndex index;              // the number of a node, noNode for one that cannot be a parent
    std::vector<size_t> parents;  // by number, noNode for a node of the top level
};

// The members that the nesting reads of a node, null where it lacks them.
struct LinkMembers {
    const Json::Value* pjChildren = NULL;
    const Json::Value* pjMarker = NULL;
    const Json::Value* pjId = NULL;
    const Json::Value* pjType = NULL;
    const Json::Value* pjParentId = NULL;
    const Json::Value* pjParentType = NULL;
};

// In the order of the names, that of an object's members.
constexpr std::pair<std::string_view, const Json::Value * LinkMembers::*> linkMembers[] = {
    {"children", &LinkMembers::pjChildren},
    {szHungMarker, &LinkMembers::pjMarker},
    {"id", &LinkMembers::pjId},
    {"node_type", &LinkMembers::pjType},
    {"parent_id", &LinkMembers::pjParentId},
    {"parent_type", &LinkMembers::pjParentType},
};

// Walks over the members and the names together, a third of the work of looking each name up.
LinkMembers find_link_members(const Json::Value& jNode)
{
    LinkMembers found;
    const auto* pNext = std::begin(linkMembers);
    for (auto it = jNode.begin(), end = jNode.end(); it != end && pNext != std::end(linkMembers); ++it) {
        const char* szEnd = NULL;
        const char* szName = it.memberName(&szEnd);
        const std::string_view name(szName, static_cast<size_t>(szEnd - szName));
        while (pNext != std::end(linkMembers) && pNext->first < name) {
            ++pNext;
        }
        if (pNext != std::end(linkMembers) && pNext->first == name) {
            found.*(pNext->second) = &*it;
        }
    }
    return found;
}

// Reads the node's identity and its parent link.
int read_keys(const LinkMembers& members, NodeLink* pLink)
{
    if (NULL == members.pjId || NULL == members.pjType || NULL == members.pjParentId ||
        0 > read_int(*members.pjType, &pLink->self.first) || 0 > read_int64(*members.pjId, &pLink->self.second) ||
        0 > read_int64(*members.pjParentId, &pLink->parent.second)) {
        return -1;
    }
    pLink->canBeParent = Json::intValue == members.pjType->type();
    pLink->parent.first = VELQ_ZEM_TYPE_OU;
    if (NULL == members.pjParentType || members.pjParentType->isNull()) {
        return 0;
    }
    return read_int(*members.pjParentType, &pLink->parent.first);
}

// Reads what nesting needs to know of the node, as far as it can be a part of a list that is usable.
int read_link(const Json::Value& jNode, NodeLink* pLink)
{
    if (!jNode.isObject()) {
        return -1;
    }
    const LinkMembers members = find_link_members(jNode);
    const bool hasChildren = NULL != members.pjChildren && !members.pjChildren->isNull();
    return hasChildren || NULL != members.pjMarker ? -1 : read_keys(members, pLink);
}

// Numbers the nodes and indexes them.
int add_nodes(const std::vector<NodeLink>& links, Forest& forest)
{
    for (const NodeLink& link : links) {
        const size_t number = link.canBeParent ? forest.nodes.size() : noNode;
        forest.nodes.push_back(&link);
        if (!forest.index.emplace(link.self, number).second) {
            return -1;
        }
    }
    return 0;
}

// Finds the parents of the nodes from the number begin up to end, an array. A node of the array itself can be a parent
// only when it was hung before its child's turn came; among the groups, which are nested in place, in any order.
void find_parents(size_t begin, size_t end, bool isInPlace, Forest& forest)
{
    const size_t known = isInPlace ? end : begin;
    for (size_t node = begin; node < end; ++node) {
        const auto it = forest.index.find(forest.nodes[node]->parent);
        const size_t parent = forest.index.end() == it ? noNode : it->second;
        const bool isHung = parent < node && noNode != forest.parents[parent];
        forest.parents.push_back(parent < known || isHung ? parent : noNode);
    }
}

// Takes its parent from the last node of each cycle: when its turn comes, the others hang below it already.
void open_cycles(std::vector<size_t>& parents)
{
    std::vector<size_t> metFrom(parents.size(), noNode);  // the start of the walk upwards that first met the node
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

// Gives the node its display members, all but its children.
void set_display_members(const NodeLink& link, bool isLeaf)
{
    link.pjNode->removeMember("id");
    *link.pjExpanded = !isLeaf;
    if (isLeaf) {
        (*link.pjNode)[szLoaded] = true;
    }
}

// Moves every node to the end of its parent's children. It takes those along that it has got so far; the place of its
// children stays, so that later ones find it.
void place_nodes(const Forest& forest, Json::Value& jData)
{
    std::vector<bool> isParent(forest.nodes.size());
    for (const size_t parent : forest.parents) {
        if (noNode != parent) {
            isParent[parent] = true;
        }
    }
    for (size_t node = 0; node < forest.nodes.size(); ++node) {
        const NodeLink& link = *forest.nodes[node];
        const size_t parent = forest.parents[node];
        set_display_members(link, !isParent[node]);
        Json::Value& jSiblings = noNode == parent ? jData : *forest.nodes[parent]->pjChildren;
        jSiblings.append(std::move(*link.pjNode));
    }
}

}  // namespace

void read_node_link(Json::Value& jNode, std::vector<NodeLink> NodeLinks::*pKind, NodeLinks* pLinks)
{
    NodeLink link;
    if (0 > read_link(jNode, &link)) {
        pLinks->isUsable = false;
        return;
    }
    link.pjNode = &jNode;
    link.pjChildren = &jNode[szChildren];
    link.pjExpanded = &jNode[szExpanded];
    (pLinks->*pKind).push_back(link);
}

int nest_by_lookup(const NodeLinks& links, Json::Value& jData)
{
    Forest forest;
    const size_t servers = links.groups.size();
    const size_t policies = servers + links.servers.size();
    const size_t end = policies + links.policies.size();

    if (EACCES == errno || !links.isUsable) {
        return -1;
    }
    forest.nodes.reserve(end);
    forest.index.reserve(end);
    forest.parents.reserve(end);
    if (0 > add_nodes(links.groups, forest) || 0 > add_nodes(links.servers, forest) ||
        0 > add_nodes(links.policies, forest)) {
        return -1;
    }
    find_parents(0, servers, true, forest);
    open_cycles(forest.parents);
    find_parents(servers, policies, false, forest);
    find_parents(policies, end, false, forest);

    jData = Json::Value(Json::arrayValue);
    place_nodes(forest, jData);
    return 0;
}
