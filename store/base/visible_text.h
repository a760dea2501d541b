// Texts of the store for the eyes of people: what is written here cannot steer a terminal, or pass for another line.
// Any thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <json/value.h>

namespace store {

constexpr size_t kLongestValue = 80;  // of a line, in bytes

// The value as JSON text on one line, UTF-8 where that can be seen; a character that cannot is escaped.
std::string visibleJson(const Json::Value& jValue);

// One value of a line: the text itself where all of it can be seen and nothing in it separates values, else as a JSON
// text. A long one is cut, with "..." after it. from: bytes to leave out at the beginning, fewer than there are or
// none, with "..." in their place.
std::string visibleText(std::string_view text, size_t from = 0);

// The same for a text that visibleJson() gave, which stays as it is when it is short and whole.
std::string visiblePartOfJson(std::string_view json, size_t from);

}  // namespace store
