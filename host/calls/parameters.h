// Checks the names of parameters of the methods that change something. Neither the modules nor the store report these
// faults.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "platform/velq_webapi.h"
#include "store/store.h"

namespace host {

// Returns the first ten names of parameters, and of members of records in "multiple_data", that the method ignores.
// Otherwise a client would not notice a misspelled member, or a "revision" that has no effect. Returns nothing for
// methods of modules that did not come with zemhost.
std::vector<std::string> ignoredNames(const VELQ::APIMethod& row, const Json::Value& jParams);

// Returns the cause that names a required parameter that is missing; an empty cause when none is known to be missing.
store::Cause missingParameter(const VELQ::APIMethod& row, const Json::Value& jParams);

}  // namespace host
