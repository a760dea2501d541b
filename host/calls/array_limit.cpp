// Limits the number of elements of the arrays in a request.
#include "host/calls/array_limit.h"

namespace host {

namespace {

constexpr Json::ArrayIndex kMaxElements = 10'000;
// Records are few in a body for their size, so that more of them may come.
constexpr Json::ArrayIndex kMaxRecords = 20'000;

Json::ArrayIndex maxElementsOf(const std::string& name)
{
    return name == "multiple_data" ? kMaxRecords : kMaxElements;
}

}  // namespace

std::optional<store::Cause> refusalOfArrays(const Json::Value& jParams)
{
    std::optional<store::Cause> refusal;
    for (auto member = jParams.begin(); member != jParams.end() && !refusal; ++member) {
        const std::string name = member.name();
        if (name == "extra_info") {
            continue;
        }
        const bool isElement = name.empty() && jParams.isArray();
        if (!isElement && member->isArray() && member->size() > maxElementsOf(name)) {
            const std::string count = std::to_string(maxElementsOf(name));
            return store::Cause{"too_many", name, name + ": more than " + count + " elements"};
        }
        refusal = refusalOfArrays(*member);
    }
    return refusal;
}

}  // namespace host
