// Checks a record's values by themselves, without the database. Any thread may call these functions.
#pragma once

#include <cstddef>
#include <exception>

#include <json/value.h>

#include "store/records/policy_links.h"

namespace store {

// Throws InvalidInput for a name that is empty or too long. szName: UTF-8.
void checkName(const char* szName);

// The links of a record in the form that is stored, or the error of a text that has another form.
struct CheckedLinks {
    PolicyLinks links;
    std::exception_ptr error;
};

// Checks the texts of a group or server that is to be stored, but not their lengths. Takes time for long texts, so call
// it before the transaction. Throws InvalidInput for one that is not UTF-8 and for a wrong name, Refusal EINVAL for a
// JSON text that is not valid. The links may be damaged, because the stored record may have had them before.
template <typename R>
CheckedLinks checkTexts(const R& record);

// Throws InvalidInput for a text that is longer than its field allows. One that the stored record has may stay, or
// become shorter. stored: for a new record, a default one. links: the number of policies that the record links.
template <typename R>
void checkLengths(const R& record, const R& stored, size_t links);

// Returns the "version" of a policy's settings. Throws InvalidInput when they are not an object with an integer of that
// name.
int settingVersion(const Json::Value& jSetting);

}  // namespace store
