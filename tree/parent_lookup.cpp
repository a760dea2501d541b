#include "tree/parent_lookup.h"

#include <algorithm>
#include <cerrno>
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
    NodeIndex index;                    // the number of a node, noNode for one that cannot be a parent
    std::vector<size_t> parents;        // by number, noNode for a node of the top level
    std::vector<size_t> firstChildren;  // by number; noNode for a leaf
    std::vector<size_t> nextSiblings;   // by number; noNode for the last child
};

// Reads the node's identity and its parent link.
int read_keys(const Json::Value& jNode, NodeLink* pLink)
{
    const Json::Value* pjType = find_member(jNode, "node_type");
    const Json::Value* pjParentType = find_member(jNode, "parent_type");
    if (NULL == pjType || 0 > read_int(*pjType, &pLink->self.first) ||
        0 > read_member(jNode, "id", &pLink->self.second) ||
        0 > read_member(jNode, "parent_id", &pLink->parent.second)) {
        return -1;
    }
    pLink->canBeParent = Json::intValue == pjType->type();
    pLink->parent.first = VELQ_ZEM_TYPE_OU;
    return NULL == pjParentType || pjParentType->isNull() ? 0 : read_int(*pjParentType, &pLink->parent.first);
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

// Chains the children of each node in the order of their numbers.
void chain_children(Forest& forest)
{
    forest.firstChildren.assign(forest.nodes.size(), noNode);
    forest.nextSiblings.assign(forest.nodes.size(), noNode);
    for (size_t node = forest.nodes.size(); node-- > 0;) {
        const size_t parent = forest.parents[node];
        if (noNode != parent) {
            forest.nextSiblings[node] = forest.firstChildren[parent];
            forest.firstChildren[parent] = node;
        }
    }
}

// Gives the node its display members and moves it, with its subtree, to the end of its siblings.
void place_node(size_t node, const Forest& forest, Json::Value& jSiblings)
{
    const NodeLink& link = *forest.nodes[node];
    const bool isLeaf = noNode == forest.firstChildren[node];
    link.pjNode->removeMember("id");
    *link.pjExpanded = !isLeaf;
    if (isLeaf) {
        (*link.pjNode)[szLoaded] = true;
    } else {
        *link.pjChildren = Json::Value(Json::arrayValue);
    }
    jSiblings.append(std::move(*link.pjNode));
    for (size_t child = forest.firstChildren[node]; noNode != child; child = forest.nextSiblings[child]) {
        place_node(child, forest, *link.pjChildren);
    }
}

}  // namespace

int read_node_link(Json::Value& jNode, std::vector<NodeLink>& links)
{
    NodeLink link;
    const Json::Value* pjChildren = find_member(jNode, "children");
    if (has_marker(jNode) || (NULL != pjChildren && !pjChildren->isNull()) || 0 > read_keys(jNode, &link)) {
        return -1;
    }
    link.pjNode = &jNode;
    link.pjChildren = &jNode[szChildren];
    link.pjExpanded = &jNode[szExpanded];
    links.push_back(link);
    return 0;
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
    chain_children(forest);

    jData = Json::Value(Json::arrayValue);
    for (size_t node = 0; node < end; ++node) {
        if (noNode == forest.parents[node]) {
            place_node(node, forest, jData);
        }
    }
    return 0;
}
