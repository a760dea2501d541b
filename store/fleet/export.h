// Writes a fleet in the form of a fleet file.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "store/fleet/fleet.h"

namespace store {

// Returns the fleet as the JSON object of a file. Throws std::runtime_error for a text that is not UTF-8, or that must
// be JSON and is not.
Json::Value toJson(const Fleet& fleet);

// Returns the lines of the file, one for each record, without line ends. Also throws std::runtime_error for a record
// that parseFleet() would refuse.
std::vector<std::string> fileLines(const Fleet& fleet);

}  // namespace store
