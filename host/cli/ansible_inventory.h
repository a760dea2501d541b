// What an inventory of Ansible is as a fleet: its groups are the tree, its hosts the servers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

namespace host {

struct Import {
    // Groups that are new, servers that are new or change, as a fleet file has them.
    Json::Value jFleet{Json::objectValue};

    // For people, one line each: what was chosen, left out, or stays as it is.
    std::vector<std::string> notes;
};

// Finds the records of an inventory in a fleet, and makes those that are missing. Any thread may call it.
// jInventory: what "ansible-inventory --list" prints, or a dynamic inventory that carries "_meta".
// jStored: the fleet as a fleet file has it. lastGroup: the highest identifier that a group ever had.
//
// A group is found by its path from the root, a server by its name. What the inventory does not know stays: a server
// keeps its policies and delegates, and its address where the host has no "ansible_host" that is a plain text.
// "all" is the root, "ungrouped" too; what they name besides another group stands in that group. A group with several
// parents stands under the one that is met first when the inventory is walked from "all" down, a host in the deepest
// of its groups, the first of these. A host that no group has is none.
//
// Throws std::runtime_error, with the place in the inventory: a value of the wrong type, a name that the store does
// not take, groups below one another in a circle or more than kMaxGroupDepth of them, a host for which several stored
// servers have the name and not just one of them stands in its group; and without an administrator in jStored.
Import importInventory(const Json::Value& jInventory, const Json::Value& jStored, int64_t lastGroup);

}  // namespace host
