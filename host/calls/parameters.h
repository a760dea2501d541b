// Knows the parameters of the methods that change something, for what neither the module nor the store can explain.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "platform/velq_webapi.h"
#include "store/store.h"

namespace host {

// Returns names that the method ignores, of parameters and of members of records in "multiple_data": the first ten.
// Otherwise a misspelled member, or a "revision" that does not protect anything, would look like a success. Methods of
// other modules ignore nothing that is known here.
std::vector<std::string> ignoredNames(const VELQ::APIMethod& row, const Json::Value& jParams);

// Returns which parameter the method requires and does not get, an empty cause when none is known to be missing.
store::Cause missingParameter(const VELQ::APIMethod& row, const Json::Value& jParams);

}  // namespace host
