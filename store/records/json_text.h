// JSON members and texts of records: checked before they are stored, parsed when they are read. Requests and fleets go
// the same way. Any thread may call these functions.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "store/records/records.h"

namespace store {

// The value as JSON text on one line. Throws Refusal EINVAL when it is nested too deep to be read back.
std::string jsonText(const Json::Value& jValue);

// The value, of any kind, of a JSON text that a record holds: once stored it was checked, so it is read with the
// library's lenient defaults, through one reader for each thread. Throws Refusal EINVAL when it is none.
Json::Value parseJson(const char* szText);

// The same for the text of policy links. Most have one form, which is read several times as fast as the library does.
Json::Value parseLinks(const char* szText);

// The identifiers of the policies that such a text links, in their order.
std::vector<int64_t> parseLinkIds(const char* szText);

// The text of policy links in the form that is stored: each entry names its policy as "id" only, without the members
// that a tree's answer has for people. Throws as parseLinkIds().
VLIBCString plainLinks(const VLIBCString& links);

// The identifiers of "linked_gpo", null or {"order":[{"id":N},...]}, in their order; an entry without an "id" may name
// its policy as "gpo_id". Throws InvalidInput for another form.
std::vector<int64_t> linkIds(const Json::Value& jLinks);

// Throws InvalidInput when a policy occurs twice; for one that is not known InvalidInput with EINVAL, or with EACCES a
// Refusal: the caller does not see it.
void checkLinks(const std::vector<int64_t>& ids, const std::function<bool(int64_t)>& isKnown, int unknown = EINVAL);

// Throws InvalidInput for the name of a group, server or policy that is empty or too long. szName: UTF-8.
void checkName(const char* szName);

// The account uids of "delegate", an array of {"ugid":N,"user_type":2}. Throws InvalidInput for another form, for one
// that occurs twice and for one that is not known.
std::vector<int64_t> delegateUgids(const Json::Value& jDelegates, const std::function<bool(int64_t)>& isKnown);

// The "version" of a policy's settings. Throws InvalidInput when they are not an object with an integer of that name.
int settingVersion(const Json::Value& jSetting);

// Lays those members of the object over the record that the kind takes from outside; a null member counts as absent,
// but that it clears a JSON text. Throws InvalidInput; the record may then hold some of the members. For groups,
// servers, policies and accounts.
template <typename R>
void assignMembers(const Json::Value& jRecord, R& record);

}  // namespace store
