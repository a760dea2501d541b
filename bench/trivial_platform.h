// A platform that does almost nothing, so that benchmarks measure the module's own work.
//
// A record is a pointer to a JSON node made in advance, there are no delegates, and answers are discarded. Only one
// thread may use it.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace bench {

struct TrivialPlatform {
    // The nodes that a listing returns.
    Json::Value jOu{Json::arrayValue}, jKx{Json::arrayValue}, jGpo{Json::arrayValue};
    std::vector<std::string> policyNames;  // by identifier; all policies have the same description
};

extern TrivialPlatform platform;

}  // namespace bench
