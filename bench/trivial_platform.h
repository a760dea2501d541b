// A platform that does next to nothing, so that what is measured is the module's own work: records are pointers to JSON
// nodes that were made before, there are no delegates, and an answer is dropped. One thread.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace bench {

struct TrivialPlatform {
    Json::Value jOu{Json::arrayValue}, jKx{Json::arrayValue}, jGpo{Json::arrayValue};  // what a listing gives
    std::vector<std::string> policyNames;  // by identifier; the description is the same for all
};

extern TrivialPlatform platform;

}  // namespace bench
