// Writes the JSON text of an answer, faster than the JSON library and without copying it while it grows.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace standin {

// Returns the value as JSON text on one line, with UTF-8 unescaped. The text is split into pieces of about 1 MiB (more
// for a longer string), because a single string would be copied, and need memory twice, whenever it grows. NaN becomes
// null, and infinity a number out of range, as with the JSON library. Any thread may call it. Throws std::bad_alloc.
std::vector<std::string> writeJson(const Json::Value& jValue);

}  // namespace standin
