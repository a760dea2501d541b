// The step of the tree fetch that nests what the store listed, on its own.
#pragma once

#include <json/value.h>

// Nests groups, servers and policies into jData, an array, and gives every node its display members. The three source
// arrays keep nothing of use. Returns 0, or -1 after a log line: an argument is not an array; jData then is as it was.
int BuildTreeJson(Json::Value& jDataOu, Json::Value& jDataKx, Json::Value& jDataGpo, Json::Value& jData);
