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

// Nodes are numbered in the order in which they are met, the source first. The index gives the number of the node with
// a kind and an identifier, noNode for one that cannot be a parent.
typedef std::pair<int, int64_t> NodeKey;
typedef std::unordered_map<NodeKey, size_t, decltype([](const NodeKey& key) {
                               return static_cast<size_t>(key.second) * 31 + static_cast<size_t>(key.first);
                           })>
    NodeIndex;
typedef std::vector<Json::Value*> NodeList;

int index_node(Json::Value& jNode, NodeIndex& index, NodeList& nodes)
{
    NodeKey key;
    if (0 > read_member(jNode, "node_type", &key.first) || 0 > read_member(jNode, "id", &key.second)) {
        return -1;
    }
    // The kinds are compared as JSON values: one that is not a signed integer never matches.
    const size_t number = Json::intValue == jNode["node_type"].type() ? nodes.size() : noNode;
    nodes.push_back(&jNode);
    return index.emplace(key, number).second ? 0 : -1;
}

int read_link(const Json::Value& jNode, NodeKey* pKey)
{
    const Json::Value* pjType = find_member(jNode, "parent_type");
    pKey->first = VELQ_ZEM_TYPE_OU;
    if (NULL != pjType && !pjType->isNull() && 0 > read_int(*pjType, &pKey->first)) {
        return -1;
    }
    return read_member(jNode, "parent_id", &pKey->second);
}

// Indexes the source nodes and collects their parent links.
int index_source(Json::Value& jSrc, NodeIndex& index, NodeList& nodes, std::vector<NodeKey>& links)
{
    index.reserve(jSrc.size());
    nodes.reserve(jSrc.size());
    links.reserve(jSrc.size());
    for (Json::Value& jNode : jSrc) {
        const Json::Value* pjChildren = find_member(jNode, "children");
        NodeKey link;
        if (0 > index_node(jNode, index, nodes) || 0 > read_link(jNode, &link) ||
            (NULL != pjChildren && !pjChildren->isNull()) || has_marker(jNode)) {
            return -1;
        }
        links.push_back(link);
    }
    return 0;
}

// Indexes the nodes of a tree, all levels. Only at the top level a marker has a meaning.
int index_tree(Json::Value& jNodes, bool isTop, NodeIndex& index, NodeList& nodes)
{
    for (Json::Value& jNode : jNodes) {
        if (0 > index_node(jNode, index, nodes) || (isTop && has_marker(jNode))) {
            return -1;
        }
        const Json::Value* pjChildren = find_member(jNode, "children");
        if (NULL == pjChildren || pjChildren->isNull()) {
            continue;
        }
        if (!pjChildren->isArray() || 0 > index_tree(jNode["children"], false, index, nodes)) {
            return -1;
        }
    }
    return 0;
}

std::vector<size_t> find_parents(const std::vector<NodeKey>& links, const NodeIndex& index)
{
    std::vector<size_t> parents;
    parents.reserve(links.size());
    for (const NodeKey& link : links) {
        const auto it = index.find(link);
        parents.push_back(index.end() == it ? noNode : it->second);
    }
    return parents;
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

}  // namespace

int hang_by_lookup(Json::Value& jSrc, Json::Value& jDst)
{
    const bool isSelf = &jSrc == &jDst;
    NodeIndex index;
    NodeList nodes;
    std::vector<NodeKey> links;

    if (EACCES == errno || 0 > index_source(jSrc, index, nodes, links)) {
        return -1;
    }
    if (!isSelf && 0 > index_tree(jDst, true, index, nodes)) {
        return -1;
    }
    std::vector<size_t> parents = find_parents(links, index);
    if (isSelf) {
        open_cycles(parents);
    } else {
        // A source node can be a parent only from when it has been hung itself.
        std::fill_n(nodes.begin(), parents.size(), static_cast<Json::Value*>(NULL));
    }
    size_t i = 0;
    for (Json::Value& jChild : jSrc) {
        Json::Value* pjParent = noNode == parents[i] ? NULL : nodes[parents[i]];
        if (NULL != pjParent) {
            nodes[i] = &(*pjParent)["children"].append(std::move(jChild));
            jChild = Json::Value(Json::objectValue);
            set_marker(jChild);
        }
        ++i;
    }
    return 0;
}
