// Declares the function that returns the version of the console's user interface.
#pragma once

#include <json/value.h>

extern "C" {

// Returns the version as a JSON object with the integers "major" and "minor", or a null value with errno EINVAL if flag
// is not 0. The caller owns the value. Any thread may call it at any time.
Json::Value GetUIVersion(int flag);

}  // extern "C"
