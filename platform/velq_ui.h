// The version of the console's user interface.
#pragma once

#include <json/value.h>

extern "C" {

// The version as a JSON object with the integers "major" and "minor". flag: 0, the only value in use.
// Returns a value that the caller owns, or a null value on failure with errno EINVAL (another flag).
// Any thread may call it at any time.
Json::Value GetUIVersion(int flag);

}  // extern "C"
