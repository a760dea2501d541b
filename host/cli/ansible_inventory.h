// Merges an Ansible inventory into a fleet: its groups become the tree of groups, its hosts the servers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

namespace host {

struct Import {
    // The groups that are new and the servers that are new or changed, as a fleet file has them.
    Json::Value jFleet{Json::objectValue};

    // Notes for people, one line each: about choices, omissions, and records that stay as they are.
    std::vector<std::string> notes;
};

// Matches the groups and hosts of an inventory with the records of a fleet. Any thread may call it.
// jInventory: the output of "ansible-inventory --list", or a dynamic inventory that carries "_meta".
// jStored: the fleet, as a fleet file has it. lastGroup: the highest identifier that a group ever had.
//
// A group is matched by its path from the root, a server by its name; those without a match are created. Stored records
// that are not in the inventory stay as they are. A matched server keeps its policies and delegates, and its address
// unless the host has an "ansible_host" that is a plain text.
//
// "all" and "ungrouped" are the root. A group or host in one of these goes into the root only if no other group has it.
// A group with several parents goes under the one that is met first when the inventory is walked from "all" down; a
// host goes into the deepest of its groups, or into the first of them when several are equally deep. A host that is in
// no group is left out.
//
// Throws std::runtime_error, with the place in the inventory, for a value of the wrong type, a name that the store does
// not accept, groups that are below one another in a circle or on more than store::kMaxGroupDepth levels, and a host
// whose name several stored servers have, unless exactly one of them is in its group. Throws it also when jStored has
// no administrator.
Import importInventory(const Json::Value& jInventory, const Json::Value& jStored, int64_t lastGroup);

}  // namespace host
