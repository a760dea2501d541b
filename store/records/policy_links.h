// Converts the policies that a group or server links, in their order, between the JSON value {"order":[{"id":N},...]},
// its text in a record, and identifiers. Any thread may call these functions.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

#include <json/value.h>

#include "platform/velq_core.h"

namespace store {

// Policy links in the form that is stored: each entry names its policy as "id" only and lacks the members that a tree's
// answer adds for people ("gpo_id", "gpo_name", "gpo_desc").
struct PolicyLinks {
    VLIBCString text;
    std::vector<int64_t> ids;
};

// Returns the links of the text in the form that is stored. Throws InvalidInput when it has another form than linkIds()
// takes, and Refusal EINVAL when it is not JSON.
PolicyLinks storableLinks(const VLIBCString& text);

// Returns the text to store for the links of a request; empty when the order is empty and no other member is there.
// Throws InvalidInput as linkIds() does, and Refusal EINVAL when the value is nested too deep.
VLIBCString linksText(Json::Value jLinks);

// Appends the identifiers of a text of links that holds nothing else, {"order":[{"id":N},...]} as writeJson() writes
// it. Returns false for any other text; ids may be changed then.
bool readIdsOnly(std::string_view text, std::vector<int64_t>& ids);

// Returns the value of a text of links. Throws Refusal EINVAL when it is not JSON.
Json::Value parseLinks(const char* szText);

// Returns the identifiers of the policies that a text of links names, in their order. Throws as storableLinks().
std::vector<int64_t> parseLinkIds(const char* szText);

// Returns the identifiers of the policies that "linked_gpo" names, in their order; none for null. An entry without an
// "id" may name its policy as "gpo_id". Throws InvalidInput for another form.
std::vector<int64_t> linkIds(const Json::Value& jLinks);

// Throws InvalidInput when a policy occurs twice or is not known. With errnoOfUnknown EACCES, a policy that is not
// known counts as one that the account does not see, and throws Refusal EACCES instead.
void checkLinks(const std::vector<int64_t>& ids, const std::function<bool(int64_t)>& isKnown,
                int errnoOfUnknown = EINVAL);

}  // namespace store
