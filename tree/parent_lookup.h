// The nesting of groups, servers and policies with one index of all nodes: linear time, the answer of the search node
// by node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <json/value.h>

typedef std::pair<int, int64_t> NodeKey;  // kind and identifier of a node

// What the nesting needs to know of one node of an array.
struct NodeLink {
    NodeKey self;
    NodeKey parent;                  // as the node names it
    bool canBeParent = false;        // its kind is a signed integer: kinds are compared as JSON values
    Json::Value* pjNode = NULL;      // the element of the array, to which it belongs; the array may be moved
    Json::Value* pjChildren = NULL;  // its "children", null so far; it stays where it is when the node is moved
    Json::Value* pjExpanded = NULL;  // its "expanded"; likewise
};

// The nodes of the three arrays, read while they are fresh from the converters: a tree's nodes do not fit into the
// cache together. One of another shape makes the whole list unusable: the search leaves traces of its own on it.
struct NodeLinks {
    std::vector<NodeLink> groups;
    std::vector<NodeLink> servers;
    std::vector<NodeLink> policies;
    bool isUsable = true;
};

// Reads one node, an element of an array, to the end of its kind's list and sets members on it that nesting sets
// anyway: "children" where it is absent, and "expanded", both null for now. The list becomes unusable, the node left as
// it is, when it is no object, lacks a member that the search would add, has a number that cannot be read, or arrives
// with a marker or with children.
void read_node_link(Json::Value& jNode, std::vector<NodeLink> NodeLinks::*pKind, NodeLinks* pLinks);

// Nests the nodes into jData, which is replaced, and gives every node its display members: same parents, same order as
// three nestings by search, each node met once. The nodes are moved; their arrays keep nothing of use.
// Returns 0, or -1 with nothing changed where the search leaves traces: errno is EACCES, so that it logs each kind that
// does not match; the links are not usable; two nodes have the same identity.
int nest_by_lookup(const NodeLinks& links, Json::Value& jData);
