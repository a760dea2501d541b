// The inventory is read and checked, then its groups are placed, then its hosts, then both are found in the store.
#include "host/cli/ansible_inventory.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "store/store.h"

namespace host {

namespace {

constexpr const char* kRoot = "all";
constexpr const char* kRootsOwn = "ungrouped";
constexpr size_t kNoGroup = SIZE_MAX;

std::string quoted(const std::string& text)
{
    return '"' + text + '"';
}

std::string groupPlace(const std::string& name)
{
    return "group " + quoted(name);
}

std::string hostPlace(const std::string& name)
{
    return "host " + quoted(name);
}

void requireValid(bool condition, const std::string& place, const std::string& why)
{
    if (!condition) {
        throw std::runtime_error(place + ": " + why);
    }
}

// --- The inventory as it is written

struct InventoryGroup {
    std::vector<std::string> children;
    std::vector<std::string> hosts;
};

using InventoryGroups = std::map<std::string, InventoryGroup>;

void checkName(const std::string& name, const std::string& place)
{
    const auto length = store::characterCount(name);
    requireValid(!name.empty() && store::isPlainText(name), place, "a name that is empty or holds a NUL");
    requireValid(length <= store::kMaxNameLength, place,
                 "a name of more than " + std::to_string(store::kMaxNameLength) + " characters");
}

std::vector<std::string> readNames(const Json::Value& jNames, const std::string& place)
{
    requireValid(jNames.isNull() || jNames.isArray(), place, "not a list of names");
    std::vector<std::string> names;
    for (const Json::Value& jName : jNames) {
        requireValid(jName.isString(), place, "not a list of names");
        names.push_back(jName.asString());
        checkName(names.back(), place);
    }
    return names;
}

// A dynamic inventory may write a group as the list of its hosts.
InventoryGroup readGroup(const Json::Value& jGroup, const std::string& place)
{
    if (jGroup.isArray()) {
        return {{}, readNames(jGroup, place)};
    }
    requireValid(jGroup.isObject(), place, "neither an object nor a list of hosts");
    return {readNames(jGroup["children"], place + ", children"), readNames(jGroup["hosts"], place + ", hosts")};
}

// Has the root take what "ungrouped" has, and the groups that no other names: what "all" names besides is not below it
// alone.
void completeRoot(InventoryGroups& groups)
{
    InventoryGroup root = std::move(groups[kRoot]);
    const InventoryGroup own = std::move(groups[kRootsOwn]);
    groups.erase(kRootsOwn);
    root.children.insert(root.children.end(), own.children.begin(), own.children.end());
    root.hosts.insert(root.hosts.end(), own.hosts.begin(), own.hosts.end());
    groups[kRoot].hosts = std::move(root.hosts);
    std::set<std::string> placed = {kRoot, kRootsOwn};
    for (auto& [name, group] : groups) {
        std::erase(group.children, kRootsOwn);
        placed.insert(group.children.begin(), group.children.end());
    }
    for (const auto& [name, group] : groups) {
        root.children.push_back(name);
    }
    for (const std::string& name : root.children) {
        if (placed.insert(name).second) {
            groups[kRoot].children.push_back(name);
        }
    }
}

// The groups that there are, "all" among them and "ungrouped" not.
InventoryGroups readGroups(const Json::Value& jInventory)
{
    requireValid(jInventory.isObject(), "no inventory", "ansible-inventory --list prints an object");
    InventoryGroups groups;
    for (auto it = jInventory.begin(); it != jInventory.end(); ++it) {
        if (it.name() != "_meta") {
            checkName(it.name(), groupPlace(it.name()));
            groups[it.name()] = readGroup(*it, groupPlace(it.name()));
        }
    }
    completeRoot(groups);
    return groups;
}

// The variables of the hosts by their names, an object or null.
const Json::Value& hostVariables(const Json::Value& jInventory)
{
    const Json::Value& jMeta = jInventory["_meta"];
    requireValid(jMeta.isNull() || jMeta.isObject(), "_meta", "not an object");
    const Json::Value& jVariables = jMeta["hostvars"];
    requireValid(jVariables.isNull() || jVariables.isObject(), "_meta, hostvars", "not an object");
    return jVariables;
}

// --- The tree

struct PlacedGroup {
    std::string name;
    size_t parent = kNoGroup;  // its index
    int depth = 0;
    bool hasOtherParents = false;
};

// The groups with the parents that they keep, in the order in which they are met from the root down, each with all that
// is below it before the next. The root is the first; each comes after its parents, or one of them.
class GroupTree {
public:
    explicit GroupTree(const InventoryGroups& groups)
    {
        meetAll(groups);
        for (const auto& [name, group] : groups) {
            requireValid(m_indexes.contains(name), groupPlace(name), "it is in a circle of groups, or below one");
        }
        for (size_t i = 0; i < m_groups.size(); ++i) {
            for (const std::string& child : childrenOf(groups, m_groups[i].name)) {
                hang(m_groups[m_indexes.at(child)], i);
            }
        }
    }

    const std::vector<PlacedGroup>& groups() const
    {
        return m_groups;
    }

    std::string pathOf(size_t index) const
    {
        const PlacedGroup& group = m_groups[index];
        return (group.parent == 0 ? "" : pathOf(group.parent) + "/") + group.name;
    }

private:
    static const std::vector<std::string>& childrenOf(const InventoryGroups& groups, const std::string& name)
    {
        static const std::vector<std::string> kNone;
        const auto it = groups.find(name);
        return it == groups.end() ? kNone : it->second.children;
    }

    void meetAll(const InventoryGroups& groups)
    {
        struct Step {
            size_t group;
            size_t nextChild = 0;
        };
        std::vector<Step> way;  // from the root to where the walk is
        std::vector<bool> isOnWay;
        const auto meet = [&](const std::string& name) {
            const auto [it, isNew] = m_indexes.emplace(name, m_groups.size());
            if (isNew) {
                m_groups.push_back({name});
                isOnWay.push_back(true);
                way.push_back({it->second});
            }
            return isNew || !isOnWay[it->second];
        };
        meet(kRoot);
        while (!way.empty()) {
            Step& step = way.back();
            const std::string name = m_groups[step.group].name;
            const std::vector<std::string>& children = childrenOf(groups, name);
            if (step.nextChild == children.size()) {
                isOnWay[step.group] = false;
                way.pop_back();
                continue;
            }
            const std::string& child = children[step.nextChild++];
            requireValid(meet(child), groupPlace(name), "its child " + quoted(child) + " stands above it");
        }
    }

    // Under the first of its parents.
    void hang(PlacedGroup& group, size_t parent) const
    {
        group.hasOtherParents |= group.parent != kNoGroup && group.parent != parent;
        if (group.parent == kNoGroup) {
            group.parent = parent;
            group.depth = m_groups[parent].depth + 1;
            requireValid(group.depth <= store::kMaxGroupDepth, groupPlace(group.name),
                         "more than " + std::to_string(store::kMaxGroupDepth) + " groups below one another");
        }
    }

    std::vector<PlacedGroup> m_groups;
    std::unordered_map<std::string, size_t> m_indexes;
};

struct PlacedHost {
    std::string name;
    size_t group = 0;  // its index
    bool hasOtherGroups = false;
};

// The hosts with the groups that they keep.
class HostList {
public:
    HostList(const InventoryGroups& groups, const GroupTree& tree) : m_tree(tree)
    {
        for (size_t i = 0; i < tree.groups().size(); ++i) {
            placeHosts(groups, tree.groups()[i].name, i);
        }
    }

    const std::vector<PlacedHost>& hosts() const
    {
        return m_hosts;
    }

    bool contains(const std::string& name) const
    {
        return m_indexes.contains(name);
    }

private:
    void placeHosts(const InventoryGroups& groups, const std::string& group, size_t index)
    {
        const auto it = groups.find(group);
        if (it == groups.end()) {
            return;
        }
        for (const std::string& name : it->second.hosts) {
            const auto [found, isNew] = m_indexes.emplace(name, m_hosts.size());
            if (isNew) {
                m_hosts.push_back({name, index});
            } else {
                choose(m_hosts[found->second], index);
            }
        }
    }

    // Every host is in the root group as well, which is no choice.
    void choose(PlacedHost& host, size_t index) const
    {
        host.hasOtherGroups |= host.group != 0 && host.group != index;
        if (m_tree.groups()[index].depth > m_tree.groups()[host.group].depth) {
            host.group = index;
        }
    }

    const GroupTree& m_tree;
    std::vector<PlacedHost> m_hosts;
    std::unordered_map<std::string, size_t> m_indexes;
};

// --- The store

// The inventory's records among the stored ones.
class Merger {
public:
    Merger(const Json::Value& jStored, int64_t lastGroup, const GroupTree& tree, Import& import)
        : m_tree(tree), m_import(import), m_lastGroup(lastGroup)
    {
        for (const Json::Value& jGroup : jStored["groups"]) {
            const int64_t id = jGroup["id"].asInt64();
            m_lastGroup = std::max(m_lastGroup, id);
            if (id != 0) {
                m_groups.emplace(std::pair(jGroup["parent_id"].asInt64(), jGroup["name"].asString()), id);
            }
        }
        for (const Json::Value& jServer : jStored["servers"]) {
            m_lastServer = std::max(m_lastServer, jServer["id"].asInt64());
            m_servers[jServer["name"].asString()].push_back(&jServer);
            ++m_keptServers;
        }
        m_keptGroups = m_groups.size();
    }

    void findGroups()
    {
        m_ids.push_back(0);
        for (size_t i = 1; i < m_tree.groups().size(); ++i) {
            const PlacedGroup& group = m_tree.groups()[i];
            const auto found = m_groups.find({m_ids[group.parent], group.name});
            m_ids.push_back(found == m_groups.end() ? addGroup(group) : found->second);
            m_keptGroups -= found != m_groups.end();
        }
    }

    // jAddress: null when the host has none.
    void findServer(const PlacedHost& host, const Json::Value& jAddress)
    {
        const int64_t groupId = m_ids[host.group];
        const Json::Value* pStored = storedServer(host, groupId);
        m_keptServers -= pStored != nullptr;
        Json::Value jServer = pStored == nullptr ? newServer(host.name) : *pStored;
        jServer["parent_id"] = Json::Int64{groupId};
        if (!jAddress.isNull()) {
            jServer["address"] = jAddress;
        }
        if (pStored == nullptr || jServer != *pStored) {
            m_import.jFleet["servers"].append(std::move(jServer));
        }
    }

    void noteKept()
    {
        if (m_keptGroups + m_keptServers > 0) {
            m_import.notes.push_back(std::to_string(m_keptGroups) + (m_keptGroups == 1 ? " group" : " groups") +
                                     " and " + std::to_string(m_keptServers) +
                                     (m_keptServers == 1 ? " server" : " servers") +
                                     " of the store are not in the inventory and stay as they are");
        }
    }

private:
    int64_t addGroup(const PlacedGroup& group)
    {
        Json::Value& jGroup = m_import.jFleet["groups"].append(Json::Value());
        jGroup["id"] = Json::Int64{++m_lastGroup};
        jGroup["parent_id"] = Json::Int64{m_ids[group.parent]};
        jGroup["name"] = group.name;
        return m_lastGroup;
    }

    Json::Value newServer(const std::string& name)
    {
        Json::Value jServer;
        jServer["id"] = Json::Int64{++m_lastServer};
        jServer["name"] = name;
        return jServer;
    }

    // Null when the store has no server of that name. Of several, only one that stands where the host does is surely
    // the one that is meant.
    const Json::Value* storedServer(const PlacedHost& host, int64_t groupId)
    {
        const auto it = m_servers.find(host.name);
        if (it == m_servers.end()) {
            return nullptr;
        }
        if (it->second.size() == 1) {
            return it->second.front();
        }
        std::string ids;
        std::vector<const Json::Value*> here;
        for (const Json::Value* pServer : it->second) {
            ids += (ids.empty() ? "" : ", ") + (*pServer)["id"].asString();
            if ((*pServer)["parent_id"].asInt64() == groupId) {
                here.push_back(pServer);
            }
        }
        requireValid(here.size() == 1, hostPlace(host.name),
                     "the servers " + ids +
                         " of the store have that name, and not just one of them stands in its group;" +
                         " give them names of their own first");
        m_import.notes.push_back(hostPlace(host.name) + ": of the servers " + ids + " of that name it is " +
                                 (*here.front())["id"].asString() + ", which stands in its group");
        return here.front();
    }

    const GroupTree& m_tree;
    Import& m_import;
    int64_t m_lastGroup;
    int64_t m_lastServer = 0;
    std::map<std::pair<int64_t, std::string>, int64_t> m_groups;  // identifier by parent and name
    std::unordered_map<std::string, std::vector<const Json::Value*>> m_servers;
    std::vector<int64_t> m_ids;  // of the placed groups
    size_t m_keptGroups = 0;
    size_t m_keptServers = 0;
};

// The host's address; null, with a note, where it is no text or one that Ansible has yet to fill in.
Json::Value addressOf(const std::string& host, const Json::Value& jVariables, std::vector<std::string>& notes)
{
    const Json::Value& jHost = jVariables[host];
    requireValid(jHost.isNull() || jHost.isObject(), hostPlace(host), "its variables are not an object");
    const Json::Value& jAddress = jHost["ansible_host"];
    const std::string address = jAddress.isString() ? jAddress.asString() : "";
    const bool isTemplate = address.find("{{") != std::string::npos || address.find("{%") != std::string::npos;
    if (jAddress.isNull() || (jAddress.isString() && !isTemplate && store::isPlainText(address))) {
        return jAddress;
    }
    notes.push_back(hostPlace(host) + ": its ansible_host is " + (isTemplate ? "a template" : "not a text") +
                    " and left out");
    return Json::Value();
}

void noteChoices(const GroupTree& tree, const HostList& hosts, const Json::Value& jVariables, Import& import)
{
    for (const PlacedGroup& group : tree.groups()) {
        if (group.hasOtherParents) {
            import.notes.push_back(groupPlace(group.name) + " has several parents and stands under " +
                                   quoted(tree.groups()[group.parent].name));
        }
    }
    for (const PlacedHost& host : hosts.hosts()) {
        if (host.hasOtherGroups) {
            import.notes.push_back(hostPlace(host.name) + " is in several groups and stands in " +
                                   quoted(tree.pathOf(host.group)));
        }
    }
    for (auto it = jVariables.begin(); it != jVariables.end(); ++it) {
        if (!hosts.contains(it.name())) {
            import.notes.push_back(hostPlace(it.name()) + " is in no group and left out");
        }
    }
}

bool hasAdministrator(const Json::Value& jStored)
{
    const Json::Value& jAccounts = jStored["accounts"];
    return std::any_of(jAccounts.begin(), jAccounts.end(),
                       [](const Json::Value& jAccount) { return jAccount["admin"].asBool(); });
}

}  // namespace

Import importInventory(const Json::Value& jInventory, const Json::Value& jStored, int64_t lastGroup)
{
    requireValid(hasAdministrator(jStored), "the store has no administrator yet",
                 "apply a fleet file with the account of one first");
    const InventoryGroups groups = readGroups(jInventory);
    const Json::Value& jVariables = hostVariables(jInventory);
    const GroupTree tree(groups);
    const HostList hosts(groups, tree);
    Import import;
    noteChoices(tree, hosts, jVariables, import);
    Merger merger(jStored, lastGroup, tree, import);
    merger.findGroups();
    for (const PlacedHost& host : hosts.hosts()) {
        merger.findServer(host, addressOf(host.name, jVariables, import.notes));
    }
    merger.noteKept();
    return import;
}

}  // namespace host
