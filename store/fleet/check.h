// Checks a fleet as a whole: the references between its records, and the names that must be unique.
#pragma once

#include <vector>

#include "store/fleet/fleet.h"
#include "store/fleet/plan.h"

namespace store {

// The groups and servers whose policy links and delegates checkFleet() checks. An apply skips those that the file does
// not name, because their faults were there before.
enum class RelationsChecked { ofFile, all };

// Throws std::runtime_error unless group 0 exists and comes first, names are unique, each parent exists, groups nest
// without a circle and at most kMaxGroupDepth deep, and each linked policy and each delegate exists.
void checkFleet(const Fleet& fleet, RelationsChecked checked);

// Throws InvalidInput unless some account is an administrator: without one, no account could change every part of the
// store.
void checkAdministrator(const Fleet& fleet);

// Throws std::runtime_error for a text that the plan writes and that is longer than its field allows. A text that the
// store holds already may stay, or become shorter, so that the export of an old store can be applied to that store.
void checkLengths(const Plan& plan);

// Returns the depth of each group of a checked fleet: 0 for the root group, 1 for a group directly below it.
std::vector<int> depthsOf(const Section<Group>& groups);

}  // namespace store
