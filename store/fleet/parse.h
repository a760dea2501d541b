// Parses fleet files and checks each record by itself.
#pragma once

#include <json/value.h>

#include "store/fleet/fleet.h"

namespace store {

// The fleet of a file. References between records are not checked: checkFleet() does that.
Fleet parseFleet(const Json::Value& jFleet);

// Sets the entry's record and delegates, which must be fresh, to those of a record of a file. Throws InvalidInput that
// begins with the member. Instantiated for all four kinds.
template <typename R>
void parseEntry(const Json::Value& jRecord, Entry<R>& entry);

}  // namespace store
