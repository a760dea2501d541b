// Checked reads of JSON values: what the JSON library would answer with an exception is a result here.
//
// All may be called by any thread on values of its own; errno is left as it is.
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

// Reads a number as the library converts it: null is 0, a boolean 0 or 1, a fraction is cut. Returns 0, or -1 with
// *pValue unchanged: another type, not a number, or out of the range of the result.
int read_int64(const Json::Value& jValue, int64_t* pValue);
int read_int(const Json::Value& jValue, int* pValue);

// Turns a value into text as the library does: null is "", a number or a boolean its JSON text. Returns 0, or -1 with
// *pText unchanged: an array, an object, or a text with a NUL in it, which no C string can carry.
int read_text(const Json::Value& jValue, std::string* pText);

// The member of an object, null when jValue is no object or lacks it. Belongs to jValue.
const Json::Value* find_member(const Json::Value& jValue, const char* szName);

// Reads a member that is there, as read_int64 does. Returns 0, or -1 with *pValue unchanged: jValue is no object, lacks
// the member, or it cannot be read.
int read_member(const Json::Value& jValue, const char* szName, int64_t* pValue);

// Replaces the value by the one that the JSON text describes. Returns 0, or -1 with a null value: not valid JSON, or
// nested deeper than 500 levels.
int fromString(Json::Value& jValue, const std::string& text);
