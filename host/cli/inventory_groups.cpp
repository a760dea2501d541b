// Reads the groups of an Ansible inventory from its JSON and checks them.
#include "host/cli/inventory_groups.h"

#include <set>
#include <stdexcept>
#include <utility>

#include "store/store.h"

namespace host {

namespace {

constexpr const char* kUngrouped = "ungrouped";

void checkName(const std::string& name, const std::string& location)
{
    const auto length = store::characterCount(name);
    requireValid(!name.empty() && store::isPlainText(name), location, "a name that is empty or holds a NUL");
    requireValid(length <= store::kMaxNameLength, location,
                 "a name of more than " + std::to_string(store::kMaxNameLength) + " characters");
}

std::vector<std::string> readNames(const Json::Value& jNames, const std::string& location)
{
    requireValid(jNames.isNull() || jNames.isArray(), location, "not a list of names");
    std::vector<std::string> names;
    for (const Json::Value& jName : jNames) {
        requireValid(jName.isString(), location, "not a list of names");
        names.push_back(jName.asString());
        checkName(names.back(), location);
    }
    return names;
}

// A dynamic inventory may write a group as the list of its hosts.
InventoryGroup readGroup(const Json::Value& jGroup, const std::string& location)
{
    if (jGroup.isArray()) {
        return {{}, readNames(jGroup, location)};
    }
    requireValid(jGroup.isObject(), location, "neither an object nor a list of hosts");
    return {readNames(jGroup["children"], location + ", children"), readNames(jGroup["hosts"], location + ", hosts")};
}

// Makes "all" the parent of each group that has no other parent, moves the hosts and children of "ungrouped" to it and
// removes "ungrouped". A child of "all" that has another parent stays under that parent only.
void completeRoot(InventoryGroups& groups)
{
    InventoryGroup root = std::move(groups[kRootGroup]);
    const InventoryGroup ungrouped = std::move(groups[kUngrouped]);
    groups.erase(kUngrouped);
    root.children.insert(root.children.end(), ungrouped.children.begin(), ungrouped.children.end());
    root.hosts.insert(root.hosts.end(), ungrouped.hosts.begin(), ungrouped.hosts.end());
    groups[kRootGroup].hosts = std::move(root.hosts);
    std::set<std::string> placed = {kRootGroup, kUngrouped};
    for (auto& [name, group] : groups) {
        std::erase(group.children, kUngrouped);
        placed.insert(group.children.begin(), group.children.end());
    }
    for (const auto& [name, group] : groups) {
        root.children.push_back(name);
    }
    for (const std::string& name : root.children) {
        if (placed.insert(name).second) {
            groups[kRootGroup].children.push_back(name);
        }
    }
}

}  // namespace

InventoryGroups readGroups(const Json::Value& jInventory)
{
    requireValid(jInventory.isObject(), "no inventory", "ansible-inventory --list prints an object");
    InventoryGroups groups;
    for (auto it = jInventory.begin(); it != jInventory.end(); ++it) {
        if (it.name() != "_meta") {
            checkName(it.name(), groupLocation(it.name()));
            groups[it.name()] = readGroup(*it, groupLocation(it.name()));
        }
    }
    completeRoot(groups);
    return groups;
}

const Json::Value& hostVariables(const Json::Value& jInventory)
{
    const Json::Value& jMeta = jInventory["_meta"];
    requireValid(jMeta.isNull() || jMeta.isObject(), "_meta", "not an object");
    const Json::Value& jVariables = jMeta["hostvars"];
    requireValid(jVariables.isNull() || jVariables.isObject(), "_meta, hostvars", "not an object");
    return jVariables;
}

std::string quoted(const std::string& text)
{
    return '"' + text + '"';
}

std::string groupLocation(const std::string& name)
{
    return "group " + quoted(name);
}

std::string hostLocation(const std::string& name)
{
    return "host " + quoted(name);
}

void requireValid(bool condition, const std::string& location, const std::string& problem)
{
    if (!condition) {
        throw std::runtime_error(location + ": " + problem);
    }
}

}  // namespace host
