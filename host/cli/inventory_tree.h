// Gives each group and host of an Ansible inventory, which may be in several groups, one place in a tree.
//
// Any number of threads may use an object once it is constructed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/cli/inventory_groups.h"

namespace host {

constexpr size_t kNoGroup = SIZE_MAX;

struct TreeGroup {
    std::string name;
    size_t parent = kNoGroup;  // index of the parent; kNoGroup for the root
    int depth = 0;
    bool hasOtherParents = false;
};

// The groups as a tree. A walk goes from the root down, depth first; a group with several parents stays under the one
// that the walk meets first.
class GroupTree {
public:
    // Throws std::runtime_error when groups are below one another in a circle, or when there are more levels than
    // store::kMaxGroupDepth.
    explicit GroupTree(const InventoryGroups& groups);

    // The groups in the order of the walk, the root first. The parent of each comes before it.
    const std::vector<TreeGroup>& groups() const
    {
        return m_groups;
    }

    // Returns the names from below the root down to the group, joined by "/". index: of a group that is not the root.
    std::string pathOf(size_t index) const;

private:
    void walk(const InventoryGroups& groups);
    void addParent(TreeGroup& group, size_t parent) const;

    std::vector<TreeGroup> m_groups;
    std::unordered_map<std::string, size_t> m_indexes;  // by name
};

struct TreeHost {
    std::string name;
    size_t group = 0;             // index of the group in the tree
    bool hasOtherGroups = false;  // besides the root, in which every host is
};

// The hosts, each in the deepest of its groups; when several are equally deep, in the first of them in the order of the
// tree.
class HostList {
public:
    // tree: of the same groups; outlives the list.
    HostList(const InventoryGroups& groups, const GroupTree& tree);

    const std::vector<TreeHost>& hosts() const
    {
        return m_hosts;
    }

    bool contains(const std::string& name) const
    {
        return m_indexes.contains(name);
    }

private:
    void addToGroup(const std::string& name, size_t group);

    const GroupTree& m_tree;
    std::vector<TreeHost> m_hosts;
    std::unordered_map<std::string, size_t> m_indexes;  // by name
};

}  // namespace host
