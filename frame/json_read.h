// Reads JSON values and parses JSON text without exceptions: where the JSON library would throw, these return -1.
//
// Any thread may call the functions, with values that no other thread uses. They leave errno unchanged.
#pragma once

#include <cstdint>
#include <string>

#include <json/value.h>

// Reads a number, converted as the library does it: null reads as 0, a boolean as 0 or 1, a fraction is truncated.
// Returns 0; returns -1 and leaves *pValue unchanged if the value has another type, is NaN, or is out of range.
int read_int64(const Json::Value& jValue, int64_t* pValue);
int read_int(const Json::Value& jValue, int* pValue);

// Reads a value as text, converted as the library does it: null reads as "", a number or a boolean as its JSON text.
// Returns 0; returns -1 and leaves *pText unchanged if the value is an array or an object.
int read_text(const Json::Value& jValue, std::string* pText);

// Returns the member of that name, which belongs to jValue, or null if jValue is not an object or lacks the member.
const Json::Value* find_member(const Json::Value& jValue, const char* szName);

// Returns whether a member can be set: the value is an object, or null, which becomes one. The library throws for
// others.
bool can_have_members(const Json::Value& jValue);

// Reads a member as read_int64 does. Returns 0; returns -1 and leaves *pValue unchanged if jValue is not an object,
// lacks the member, or read_int64 refuses its value.
int read_member(const Json::Value& jValue, const char* szName, int64_t* pValue);

// Parses JSON text into jValue. Returns 0; returns -1 and sets jValue to null if the text is not valid JSON or is
// nested deeper than 500 levels.
int fromString(Json::Value& jValue, const std::string& text);
