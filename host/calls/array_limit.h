// Limits the number of elements of the arrays in a request: each of them may be a change, or a check of one.
#pragma once

#include <optional>

#include <json/value.h>

#include "store/store.h"

namespace host {

// Returns why the parameters are refused, "target_add: more than 10000 elements", when one of their arrays is too long,
// at any depth; otherwise nothing. "extra_info" counts as a single value, whatever it contains.
std::optional<store::Cause> refusalOfArrays(const Json::Value& jParams);

}  // namespace host
