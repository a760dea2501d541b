// Nests groups, servers and policies in linear time, by an index of all nodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <json/value.h>

typedef std::pair<int, int64_t> NodeKey;  // kind and identifier of a node

// The data about one node that nesting needs.
struct NodeEntry {
    NodeKey self;
    NodeKey parent;                  // the key of the parent that the node names
    bool canBeParent = false;        // whether "node_type" is a signed integer; no child matches another value
    Json::Value* pjNode = NULL;      // the node, an element of its array; stays valid when the whole array is moved
    Json::Value* pjChildren = NULL;  // its "children", null at first; stays valid when the node is moved
    Json::Value* pjExpanded = NULL;  // its "expanded"; likewise
};

// The nodes of the three arrays. The entries are made right after each node's conversion, while the node is still in
// the processor's cache, which is too small for all nodes of a large tree.
struct NodeTable {
    std::vector<NodeEntry> groups;
    std::vector<NodeEntry> servers;
    std::vector<NodeEntry> policies;
    bool isUsable = true;  // false: nest_by_index refuses the table
};

// Appends an entry for jNode, an element of an array, to the vector pKind, and adds the members that nesting will set:
// "children" if absent, and "expanded", null for now. Some nodes make the table unusable instead and stay unchanged: a
// value that is not an object, a node without "id", "node_type" or "parent_id" (the search for parents would add a
// member), one with a number that cannot be read, and one that already has a marker or children.
void add_node_entry(Json::Value& jNode, std::vector<NodeEntry> NodeTable::*pKind, NodeTable* pTable);

// Replaces jData by the tree of all nodes and gives every node its display members. Parents and order are the same as
// from three nestings by search (tree_assembly.h). The nodes are moved, so the contents of their arrays must not be
// used afterwards. Returns 0. Returns -1 with nothing changed if the caller must nest by search instead: the table is
// unusable, two nodes have the same kind and identifier, or errno is EACCES, because a search then logs each kind that
// does not match.
int nest_by_index(const NodeTable& table, Json::Value& jData);
