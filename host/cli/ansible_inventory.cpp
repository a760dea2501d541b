// Merges an Ansible inventory into a fleet.
#include "host/cli/ansible_inventory.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_map>
#include <utility>

#include "host/cli/inventory_groups.h"
#include "host/cli/inventory_tree.h"
#include "store/store.h"

namespace host {

namespace {

// Matches the groups and hosts of the inventory with the stored records, and collects those that are new or changed.
class Merger {
public:
    Merger(const Json::Value& jStored, int64_t lastGroup, const GroupTree& tree, Import& import)
        : m_jStored(jStored), m_tree(tree), m_import(import), m_lastGroup(lastGroup)
    {
        for (const Json::Value& jGroup : jStored["groups"]) {
            const int64_t id = jGroup["id"].asInt64();
            m_lastGroup = std::max(m_lastGroup, id);
            if (id != 0) {
                m_storedGroups.emplace(std::pair(jGroup["parent_id"].asInt64(), jGroup["name"].asString()), id);
            }
        }
        for (const Json::Value& jServer : jStored["servers"]) {
            m_lastServer = std::max(m_lastServer, jServer["id"].asInt64());
            m_storedServers[jServer["name"].asString()].push_back(&jServer);
        }
    }

    // Call it once, before mergeServer.
    void mergeGroups()
    {
        m_groupIds.push_back(0);
        for (size_t i = 1; i < m_tree.groups().size(); ++i) {
            const TreeGroup& group = m_tree.groups()[i];
            const auto found = m_storedGroups.find({m_groupIds[group.parent], group.name});
            m_groupIds.push_back(found == m_storedGroups.end() ? addGroup(group) : found->second);
        }
    }

    // jAddress: null when the host has none.
    void mergeServer(const TreeHost& host, const Json::Value& jAddress)
    {
        const int64_t groupId = m_groupIds[host.group];
        const Json::Value* pStored = findStoredServer(host, groupId);
        if (pStored != nullptr) {
            m_matchedServers.insert((*pStored)["id"].asInt64());
        }
        Json::Value jServer = pStored == nullptr ? newServer(host.name) : *pStored;
        jServer["parent_id"] = Json::Int64{groupId};
        if (!jAddress.isNull()) {
            jServer["address"] = jAddress;
        }
        if (pStored == nullptr || jServer != *pStored) {
            m_import.jFleet["servers"].append(std::move(jServer));
        }
    }

    void noteUnmatched()
    {
        noteUnmatched("group", m_jStored["groups"], {m_groupIds.begin(), m_groupIds.end()});
        noteUnmatched("server", m_jStored["servers"], m_matchedServers);
    }

private:
    // Counts the stored records that are not in the inventory, and names the first of them: when the inventory renames
    // a group, the old one stays.
    void noteUnmatched(const std::string& kind, const Json::Value& jRecords, const std::set<int64_t>& matched)
    {
        constexpr size_t kMostNamed = 20;
        size_t count = 0;
        std::string names;
        for (const Json::Value& jRecord : jRecords) {
            if (!matched.contains(jRecord["id"].asInt64()) && ++count <= kMostNamed) {
                names += (count == 1 ? "" : ", ") + jRecord["id"].asString() + " " + quoted(jRecord["name"].asString());
            }
        }
        if (count > 0) {
            const char* szStays = count == 1 ? " of the store is not in the inventory and stays as it is: "
                                             : "s of the store are not in the inventory and stay as they are: ";
            m_import.notes.push_back(std::to_string(count) + " " + kind + szStays + names +
                                     (count > kMostNamed ? ", ..." : ""));
        }
    }

    int64_t addGroup(const TreeGroup& group)
    {
        Json::Value& jGroup = m_import.jFleet["groups"].append(Json::Value());
        jGroup["id"] = Json::Int64{++m_lastGroup};
        jGroup["parent_id"] = Json::Int64{m_groupIds[group.parent]};
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

    // Returns the stored server of that name, null when there is none.
    const Json::Value* findStoredServer(const TreeHost& host, int64_t groupId)
    {
        const auto it = m_storedServers.find(host.name);
        if (it == m_storedServers.end()) {
            return nullptr;
        }
        return it->second.size() == 1 ? it->second.front() : chooseServer(host, it->second, groupId);
    }

    // Returns the one of several servers of that name that is in the host's group.
    const Json::Value* chooseServer(const TreeHost& host, const std::vector<const Json::Value*>& servers,
                                    int64_t groupId)
    {
        std::string ids;
        std::vector<const Json::Value*> here;
        for (const Json::Value* pServer : servers) {
            ids += (ids.empty() ? "" : ", ") + (*pServer)["id"].asString();
            if ((*pServer)["parent_id"].asInt64() == groupId) {
                here.push_back(pServer);
            }
        }
        requireValid(here.size() == 1, hostLocation(host.name),
                     "the servers " + ids +
                         " of the store have that name, and not just one of them stands in its group;" +
                         " give them names of their own first");
        m_import.notes.push_back(hostLocation(host.name) + ": of the servers " + ids + " of that name it is " +
                                 (*here.front())["id"].asString() + ", which stands in its group");
        return here.front();
    }

    const Json::Value& m_jStored;
    const GroupTree& m_tree;
    Import& m_import;
    int64_t m_lastGroup;
    int64_t m_lastServer = 0;
    std::map<std::pair<int64_t, std::string>, int64_t> m_storedGroups;  // identifier by parent and name
    std::unordered_map<std::string, std::vector<const Json::Value*>> m_storedServers;
    std::vector<int64_t> m_groupIds;  // by index in the tree
    std::set<int64_t> m_matchedServers{};
};

// Returns the address of the host, null when it has none. Adds a note when the address is not a text, or a template
// that Ansible has not filled in.
Json::Value addressOf(const std::string& host, const Json::Value& jVariables, std::vector<std::string>& notes)
{
    const Json::Value& jHost = jVariables[host];
    requireValid(jHost.isNull() || jHost.isObject(), hostLocation(host), "its variables are not an object");
    const Json::Value& jAddress = jHost["ansible_host"];
    const std::string address = jAddress.isString() ? jAddress.asString() : "";
    const bool isTemplate = address.find("{{") != std::string::npos || address.find("{%") != std::string::npos;
    if (jAddress.isNull() || (jAddress.isString() && !isTemplate && store::isPlainText(address))) {
        return jAddress;
    }
    notes.push_back(hostLocation(host) + ": its ansible_host is " + (isTemplate ? "a template" : "not a text") +
                    " and left out");
    return Json::Value();
}

void noteChoices(const GroupTree& tree, const HostList& hosts, const Json::Value& jVariables, Import& import)
{
    for (const TreeGroup& group : tree.groups()) {
        if (group.hasOtherParents) {
            import.notes.push_back(groupLocation(group.name) + " has several parents and stands under " +
                                   quoted(tree.groups()[group.parent].name));
        }
    }
    for (const TreeHost& host : hosts.hosts()) {
        if (host.hasOtherGroups) {
            import.notes.push_back(hostLocation(host.name) + " is in several groups and stands in " +
                                   quoted(tree.pathOf(host.group)));
        }
    }
    for (auto it = jVariables.begin(); it != jVariables.end(); ++it) {
        if (!hosts.contains(it.name())) {
            import.notes.push_back(hostLocation(it.name()) + " is in no group and left out");
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
    merger.mergeGroups();
    for (const TreeHost& host : hosts.hosts()) {
        merger.mergeServer(host, addressOf(host.name, jVariables, import.notes));
    }
    merger.noteUnmatched();
    return import;
}

}  // namespace host
