// Fuzz target: every handler and exported function, also those of gpo/ and kx/, over a fake store with arbitrary JSON
// records.
//
// Input: a byte that chooses the function, the number of the first platform call to fail, a byte that chooses errno,
// then a JSON object with the request ("params"), the stored nodes, the delegates' extra information ("extra"), and the
// value that a conversion leaves in the record ("spoil").
#include <cerrno>

#include <gtest/gtest.h>

#include "gpo/policy_link.h"
#include "include/webapi_zem_lib.h"
#include "kx/server_set.h"
#include "tests/fake_platform.h"

namespace {

void fillStore(const Json::Value& jInput)
{
    using fake::platform;
    const auto list = [&](const char* szName) {
        return jInput[szName].isArray() ? jInput[szName] : Json::Value(Json::arrayValue);
    };
    platform.listedGroups = list("groups");
    platform.listedServers = list("servers");
    platform.listedPolicies = list("policies");
    platform.policies[1] = {"one", "first"};
    platform.refused = {7};
    const std::string extra = jInput["extra"].isString() ? jInput["extra"].asString() : "";
    for (const int nodeType : {2, 3}) {
        platform.delegates[{nodeType, 1}] = {{nullptr, 2, 7, extra}, {nullptr, 3, UINT64_MAX, "{\"domainType\":1}"}};
        (nodeType == 2 ? platform.groups : platform.servers)[1] = jInput["node"];
    }
    if (jInput.isMember("spoil")) {
        platform.onConversion = [jSpoil = jInput["spoil"]](Json::Value& jRecord) { jRecord = jSpoil; };
    }
}

void callModule(unsigned which, const Json::Value& jParams)
{
    static const std::map<unsigned, test::Handler> handlers = {
        {0, create_v1},         {1, set_v1},   {2, delete_v1},      {3, list_tree_by_uid_v1},
        {4, list_one_level_v1}, {10, link_v1}, {11, set_servers_v1}};
    if (handlers.contains(which)) {
        fake::call(handlers.at(which), jParams.isObject() ? jParams : Json::Value());
        return;
    }
    Json::Value jData = jParams;
    VELQ::APIRequest request(1000, "bob", jParams.isObject() ? jParams : Json::Value());
    if (which == 5) {
        VELQZEMHttpReqToJsonForLinkedTarget(&request, jData);
    } else {
        (which % 2 ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jData, which & 2);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t size)
{
    Json::Value jInput;
    testing::GTEST_FLAG(break_on_failure) = true;  // abort when an expectation of the fake platform fails
    if (size < 3 || !test::parse(reinterpret_cast<const char*>(pData) + 3, size - 3, jInput) || !jInput.isObject()) {
        return 0;
    }
    fake::reset();
    fillStore(jInput);
    fake::platform.failFirst = pData[1];
    fake::platform.failLast = pData[1] ? SIZE_MAX : 0;
    fake::platform.failErrno = pData[2] % 3 == 0 ? 0 : pData[2] % 3 == 1 ? ENOENT : EACCES;
    errno = pData[2] & 64 ? EACCES : 0;
    callModule(pData[0] % 12, jInput["params"]);
    fake::reset();  // fails if something has not been released
    return 0;
}
