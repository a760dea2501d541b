// JSON text of an answer, written quickly and without a second copy of it.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace standin {

// The value as JSON text on one line, UTF-8 as it is, in pieces of at most about a mebibyte: a text that grows in one
// string would be copied at each doubling, and take twice its room. Numbers that are not finite become null or a number
// out of range, as the JSON library writes them. Any thread may call it. Throws std::bad_alloc.
std::vector<std::string> writeJson(const Json::Value& jValue);

}  // namespace standin
