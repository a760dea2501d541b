// Knows the parameters of the methods that change something, for refusals that the store does not explain.
#pragma once

#include <optional>

#include <json/value.h>

#include "platform/velq_webapi.h"
#include "store/store.h"

namespace host {

// Returns why a request is refused that carries a name which the method does not know, as a parameter or in a record of
// "multiple_data"; otherwise nothing. The method would ignore the name, so that a misspelled member, or a "revision"
// that does not protect anything, would look like a success. Methods of other modules know any name.
std::optional<store::Cause> refusalOfNames(const VELQ::APIMethod& row, const Json::Value& jParams);

// Returns which parameter the method requires and does not get, an empty cause when none is known to be missing.
store::Cause missingParameter(const VELQ::APIMethod& row, const Json::Value& jParams);

}  // namespace host
