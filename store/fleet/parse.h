// Parses fleet files and checks each record by itself.
#pragma once

#include <json/value.h>

#include "store/fleet/fleet.h"

namespace store {

// Returns the fleet of a file. Throws std::runtime_error for a fleet or record that is not valid by itself. References
// between records are not checked here: checkFleet() does that.
Fleet parseFleet(const Json::Value& jFleet);

// Sets the entry's record and delegates, which must be newly constructed, to those of a record of a file. Throws
// InvalidInput that begins with the member. Instantiated for all four kinds.
template <typename R>
void parseEntry(const Json::Value& jRecord, Entry<R>& entry);

}  // namespace store
