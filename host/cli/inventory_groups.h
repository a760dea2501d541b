// Reads the groups of an Ansible inventory from its JSON and checks them.
//
// Any thread may call these functions. Those that read an inventory throw std::runtime_error, with the place in the
// inventory, where a value has the wrong type or a name is not one that the store accepts.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <json/value.h>

namespace host {

constexpr const char* kRootGroup = "all";

struct InventoryGroup {
    std::vector<std::string> children;
    std::vector<std::string> hosts;
};

using InventoryGroups = std::map<std::string, InventoryGroup>;  // by name; a child without an entry is an empty group

// Returns the groups of an inventory, with kRootGroup as the parent of each group that has no other one. The root also
// has the hosts and children of "ungrouped", which is no group of its own. jInventory: as for importInventory.
InventoryGroups readGroups(const Json::Value& jInventory);

// Returns the variables of the hosts: an object by host name, or null when the inventory has none.
const Json::Value& hostVariables(const Json::Value& jInventory);

// quoted() returns the text in quotation marks. The others return the words with which messages name a group or host.
std::string quoted(const std::string& text);
std::string groupLocation(const std::string& name);
std::string hostLocation(const std::string& name);

// Throws std::runtime_error, with the location in the inventory and the problem, when the condition is false.
void requireValid(bool condition, const std::string& location, const std::string& problem);

}  // namespace host
