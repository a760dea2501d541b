// Makes values of records visible to people: the result can neither control a terminal nor look like another line. Any
// thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <json/value.h>

namespace store {

constexpr size_t kLongestValue = 80;  // in bytes; longer values are cut

// Returns whether no character of the text is visible. text: UTF-8.
bool isBlank(std::string_view text);

// Returns the value as JSON text on one line. Visible characters are UTF-8; all others are escaped.
std::string visibleJson(const Json::Value& jValue);

// Returns a text as one value of a line: as it is when all its characters are visible and none separates values,
// otherwise as a JSON text. A text longer than kLongestValue is cut and ends in "...". from: number of bytes to leave
// out at the beginning, which "..." replaces; less than the text's length, or 0.
std::string visibleText(std::string_view text, size_t from = 0);

// Does the same for a text that visibleJson() returned. A short text stays as it is when from is 0.
std::string visiblePartOfJson(std::string_view json, size_t from);

}  // namespace store
