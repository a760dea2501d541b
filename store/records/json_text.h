// Turns JSON values into the texts that records hold, and back. Any thread may call these functions.
#pragma once

#include <string>

#include <json/value.h>

namespace store {

// Returns the value as JSON text on one line.
std::string writeJson(const Json::Value& jValue);

// Returns the same for a value of any depth that is to be stored. Throws Refusal EINVAL when it is nested too deep to
// be read back.
std::string writeStorableJson(const Json::Value& jValue);

// Returns the value of a JSON text that a record holds. The text was checked before it was stored, so the library's
// lenient defaults serve. Throws Refusal EINVAL when the text is not JSON or nested too deep.
Json::Value parseJson(const char* szText);

}  // namespace store
