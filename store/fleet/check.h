// Checks a fleet as a whole: the references between its records, and the names that must be unique.
#pragma once

#include <vector>

#include "store/fleet/fleet.h"

namespace store {

// The groups and servers whose policy links and delegates checkFleet() checks. An apply leaves out those that the file
// does not name: what is wrong with them was there before.
enum class RelationsChecked { ofFile, all };

// Throws unless group 0 is there and comes first, names are unique, each parent exists, groups nest without a circle
// and at most kMaxGroupDepth deep, and each linked policy and each delegate exists.
void checkFleet(const Fleet& fleet, RelationsChecked checked);

// Throws unless some account is an administrator: nobody could change a store without one.
void checkAdministrator(const Fleet& fleet);

// The depth of each group of a checked fleet: 0 for the root group, 1 for a group directly below it.
std::vector<int> depthsOf(const Section<Group>& groups);

}  // namespace store
