// Writes a fleet in the form of a fleet file.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "store/fleet/fleet.h"

namespace store {

// The fleet as the JSON object of a file. Throws for a text that is not UTF-8 or not JSON where it must be.
Json::Value toJson(const Fleet& fleet);

// The lines of the file, one for each record, without line ends. Throws as well for a record that parseFleet() would
// refuse.
std::vector<std::string> fileLines(const Fleet& fleet);

}  // namespace store
