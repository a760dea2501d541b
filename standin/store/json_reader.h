// JSON texts from outside, of clients and of files: the one place that says how strictly they are read.
#pragma once

#include <string>
#include <string_view>

#include <json/value.h>

namespace standin {

// Reads a text that is one JSON object or array in UTF-8, with no comment, no name twice in one object and at most
// maxNesting levels of values inside one another. True, and jValue is what was read; or false, jValue is as it was, and
// error says what is wrong, on one line for people. Any thread may call it; it throws only when memory runs out.
bool readUntrustedJson(std::string_view text, int maxNesting, Json::Value& jValue, std::string& error);

}  // namespace standin
