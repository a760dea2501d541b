// Gives each group and host of an Ansible inventory, which may be in several groups, one place in a tree.
#include "host/cli/inventory_tree.h"

#include "store/store.h"

namespace host {

namespace {

const InventoryGroup& findGroup(const InventoryGroups& groups, const std::string& name)
{
    static const InventoryGroup kEmpty;
    const auto it = groups.find(name);
    return it == groups.end() ? kEmpty : it->second;
}

}  // namespace

GroupTree::GroupTree(const InventoryGroups& groups)
{
    walk(groups);
    for (const auto& [name, group] : groups) {
        requireValid(m_indexes.contains(name), groupLocation(name), "it is in a circle of groups, or below one");
    }
    for (size_t i = 0; i < m_groups.size(); ++i) {
        for (const std::string& child : findGroup(groups, m_groups[i].name).children) {
            addParent(m_groups[m_indexes.at(child)], i);
        }
    }
}

std::string GroupTree::pathOf(size_t index) const
{
    const TreeGroup& group = m_groups[index];
    return (group.parent == 0 ? "" : pathOf(group.parent) + "/") + group.name;
}

// Collects the groups without recursion, because nothing limits the depth yet.
void GroupTree::walk(const InventoryGroups& groups)
{
    struct Step {
        size_t group;
        size_t nextChild = 0;
    };
    std::vector<Step> path;      // from the root to the group where the walk is
    std::vector<bool> isOnPath;  // by index of the group
    const auto visit = [&](const std::string& name) {
        const auto [it, isNew] = m_indexes.emplace(name, m_groups.size());
        if (isNew) {
            m_groups.push_back({name});
            isOnPath.push_back(true);
            path.push_back({it->second});
        }
        return isNew || !isOnPath[it->second];
    };
    visit(kRootGroup);
    while (!path.empty()) {
        Step& step = path.back();
        const std::string name = m_groups[step.group].name;
        const std::vector<std::string>& children = findGroup(groups, name).children;
        if (step.nextChild == children.size()) {
            isOnPath[step.group] = false;
            path.pop_back();
            continue;
        }
        const std::string& child = children[step.nextChild++];
        requireValid(visit(child), groupLocation(name), "its child " + quoted(child) + " stands above it");
    }
}

// Parents are added in the order of the walk; the first one counts.
void GroupTree::addParent(TreeGroup& group, size_t parent) const
{
    if (group.parent != kNoGroup) {
        group.hasOtherParents |= group.parent != parent;
        return;
    }
    group.parent = parent;
    group.depth = m_groups[parent].depth + 1;
    requireValid(group.depth <= store::kMaxGroupDepth, groupLocation(group.name),
                 "more than " + std::to_string(store::kMaxGroupDepth) + " groups below one another");
}

HostList::HostList(const InventoryGroups& groups, const GroupTree& tree) : m_tree(tree)
{
    for (size_t i = 0; i < tree.groups().size(); ++i) {
        for (const std::string& name : findGroup(groups, tree.groups()[i].name).hosts) {
            addToGroup(name, i);
        }
    }
}

void HostList::addToGroup(const std::string& name, size_t group)
{
    const auto [it, isNew] = m_indexes.emplace(name, m_hosts.size());
    if (isNew) {
        m_hosts.push_back({name, group});
        return;
    }
    TreeHost& host = m_hosts[it->second];
    host.hasOtherGroups |= host.group != 0 && host.group != group;
    if (m_tree.groups()[group].depth > m_tree.groups()[host.group].depth) {
        host.group = group;
    }
}

}  // namespace host
