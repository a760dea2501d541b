// Checks a record's values by themselves, without the database. Any thread may call these functions.
#pragma once

#include <json/value.h>

namespace store {

// Throws InvalidInput for a name that is empty or too long. szName: UTF-8.
void checkName(const char* szName);

// Checks the texts of a group or server that is to be stored. Throws InvalidInput for one that is not UTF-8 and for a
// wrong name, Refusal EINVAL for a JSON text that is not valid.
template <typename R>
void checkTexts(const R& record);

// Returns the "version" of a policy's settings. Throws InvalidInput when they are not an object with an integer of that
// name.
int settingVersion(const Json::Value& jSetting);

}  // namespace store
