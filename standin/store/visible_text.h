// Texts of the store for the eyes of people: what is written here cannot steer a terminal, or pass for another line.
// Any thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <json/value.h>

namespace standin {

constexpr size_t kLongestValue = 80;  // of a line, in bytes

// The value as JSON text on one line, UTF-8 where that can be seen; a character that cannot is escaped.
std::string visibleJson(const Json::Value& jValue);

// One value of a line: the text itself where all of it can be seen and nothing in it separates values, else as a JSON
// text. One that is longer than kLongestValue is cut, with "..." after it.
std::string visibleText(std::string_view text);

// The same for a JSON text, which stays as it is when it is short.
std::string visibleText(const Json::Value& jValue);

}  // namespace standin
