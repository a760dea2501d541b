// Tests the handler of gpo/ together with the exported link functions that it calls.
#include <cerrno>

#include <gtest/gtest.h>

#include "gpo/policy_link.h"
#include "tests/sweep.h"

using namespace fake;
using namespace test;

namespace {

const std::string malformed = "Failed [!is_link_request(jPolicy, serverType)]";

std::string noPermission(int64_t groupId)
{
    return "No permission for normal user [bob] on group [" + std::to_string(groupId) + "]. [0x0D01 store.cpp:77]";
}

// The caller may not manage group 7 and the root group. Server 9 is in group 3, server 10 in group 7.
void prepareNodes()
{
    reset();
    platform.groups = {{3, json("{'linked_gpo':{'order':[{'id':8}]}}")}, {7, json("{}")}};
    platform.servers = {{9, json("{'parent_id':3,'node_type':3}")}, {10, json("{'parent_id':7}")}};
    platform.refused = {0, 7};
}

std::string linksOf(const Json::Value& jNode)
{
    std::string ids;
    for (const Json::Value& jLink : jNode["linked_gpo"]["order"]) {
        ids += jLink["id"].asString() + " ";
    }
    return ids;
}

TEST(PolicyLink, changesNothingForAMalformedRequest)
{
    const std::string good = "{'node_type':2,'node_id':3}";
    const std::pair<const char*, std::string> cases[] = {
        {"the policy is missing", "{'target_add':[" + good + "]}"},
        {"the policy is null", "{'id':null,'target_add':[" + good + "]}"},
        {"the policy is a text", "{'id':'5','target_add':[" + good + "]}"},
        {"the policy is a fraction", "{'id':5.5,'target_add':[" + good + "]}"},
        {"the policy is out of range", "{'id':9223372036854775808,'target_add':[" + good + "]}"},
        {"both arrays are missing", "{'id':5}"},
        {"both arrays are null", "{'id':5,'target_add':null,'target_remove':null}"},
        {"a target stands without an array", "{'id':5,'target_add':" + good + "}"},
        {"only the second array is malformed", "{'id':5,'target_add':[" + good + "],'target_remove':'x'}"},
        {"only the second entry is malformed", "{'id':5,'target_remove':[" + good + ",3]}"},
        {"an entry is null", "{'id':5,'target_add':[" + good + ",null]}"},
        {"the node is missing", "{'id':5,'target_add':[{'node_type':2}]}"},
        {"the node is a text", "{'id':5,'target_add':[{'node_type':2,'node_id':'3'}]}"},
        {"the kind is missing", "{'id':5,'target_add':[{'node_id':3}]}"},
        {"the kind has no links", "{'id':5,'target_add':[{'node_type':4,'node_id':3}]}"},
        {"the kind is out of range", "{'id':5,'target_add':[{'node_type':4294967298,'node_id':3}]}"},
    };
    for (const auto& [szCase, params] : cases) {
        prepareNodes();
        const auto groups = platform.groups;
        EXPECT_EQ(call(link_v1, json(params)), "error 101") << szCase;
        EXPECT_EQ(platform.groups, groups) << szCase;
        EXPECT_EQ(platform.logs, Lines{malformed}) << szCase;
        EXPECT_EQ(std::count(platform.calls.begin(), platform.calls.end(), "OuCanManagedByUid 1000 3"), 0) << szCase;
    }
}

TEST(PolicyLink, addsAndRemovesInOrderOnceEveryTargetIsAllowed)
{
    // The case, the parameters, the answer, the links of group 3 and server 9 afterwards, the log lines.
    const std::tuple<const char*, std::string, std::string, const char*, const char*, std::string> cases[] = {
        {"group and server get the link",
         "{'id':5,'target_add':[{'node_type':2,'node_id':3},{'node_type':3,'node_id':9}]}", "ok null", "8 5 ", "5 ",
         ""},
        {"additions come before removals",
         "{'id':5,'target_remove':[{'node_type':2,'node_id':3}],'target_add':[{'node_type':2,'node_id':3}]}", "ok null",
         "8 ", "", ""},
        {"a gpo_id in the request is replaced", "{'id':8,'target_remove':[{'node_type':2,'node_id':3,'gpo_id':5}]}",
         "ok null", "", "", ""},
        {"an empty array succeeds", "{'id':5.0,'target_add':[]}", "ok null", "8 ", "", ""},
        {"a refused group prevents earlier changes too",
         "{'id':5,'target_add':[{'node_type':2,'node_id':3}],'target_remove':[{'node_type':2,'node_id':7}]}",
         "error 414", "8 ", "", noPermission(7)},
        {"a server in another's group is refused for the root group",
         "{'id':5,'target_add':[{'node_type':3,'node_id':10}]}", "error 414", "8 ", "", noPermission(0)},
        {"a missing server is refused in the same way", "{'id':5,'target_add':[{'node_type':3,'node_id':11}]}",
         "error 414", "8 ", "", "Failed [0 > VELQZEMKxGet(serverId, pKx)] (2);" + noPermission(0)},
        {"a failure keeps earlier changes and ends the request",
         "{'id':5,'target_add':[{'node_type':3,'node_id':9},{'node_type':2,'node_id':4},{'node_type':2,'node_id':3}]}",
         "error 117", "8 ", "5 ",
         "lib: Failed [0 > VELQZEMOuGet(jData[\"node_id\"].asInt64(), pNode)] (2);"
         "Failed [0 > VELQZEMOuUpdateLinkGpo(jTarget, isAdd)] (2)"},
    };
    for (const auto& [szCase, params, answer, szGroup, szServer, log] : cases) {
        SCOPED_TRACE(szCase);
        prepareNodes();
        EXPECT_EQ(call(link_v1, json(params)), answer);
        EXPECT_EQ(linksOf(platform.groups[3]), szGroup);
        EXPECT_EQ(linksOf(platform.servers[9]), szServer);
        EXPECT_EQ(platform.logs, split(log));
    }
}

TEST(PolicyLink, checksArgumentsAndLoginFirst)
{
    prepareNodes();
    VELQ::APIRequest request(1000, "bob", Json::Value());
    VELQ::APIResponse response;
    errno = EACCES;
    link_v1(nullptr, &response);
    link_v1(&request, nullptr);
    EXPECT_EQ(platform.logs.size(), 2u);
    EXPECT_TRUE(platform.calls.empty());
    EXPECT_EQ(call(link_v1, Json::Value(), UINT32_MAX), "error 105");
    EXPECT_EQ(platform.logs.back(), "Failed to get login uid");
    EXPECT_EQ(errno, EACCES);
}

TEST(PolicyLink, survivesAMalformedServerRecord)
{
    const Json::Value jParams = json("{'id':5,'target_add':[{'node_type':3,'node_id':9}]}");
    for (const char* szServer : {"null", "'x'", "[]", "{}", "{'parent_id':'3'}", "{'parent_id':1e300}"}) {
        prepareNodes();
        platform.servers[9] = json(szServer);
        EXPECT_EQ(call(link_v1, jParams), "error 117") << szServer;
        EXPECT_EQ(platform.logs, Lines{"Failed [!jKx[szName].isInt64()]"}) << szServer;
        prepareNodes();
        platform.freshServer = json(szServer);
        EXPECT_EQ(call(link_v1, jParams), "error 117") << szServer;
    }
    prepareNodes();
    platform.servers[9]["linked_gpo"] = "spoiled";
    errno = EACCES;
    EXPECT_EQ(call(link_v1, jParams), "error 117") << "an earlier EACCES must not look like a refusal";
}

TEST(PolicyLink, survivesEveryFailureOfThePlatform)
{
    const auto failed = [](const std::string& check) { return "Failed [" + check + "]"; };
    const auto updateFailed = [&](const std::string& kind, const std::string& check) {
        const std::string lines =
            "lib: " + failed(check) + ";" + failed("0 > VELQZEM" + kind + "UpdateLinkGpo(jTarget, isAdd)");
        return Outcome{"error 117", lines, {{EACCES, "error 414"}}};
    };
    Outcomes outcomes = {
        {"KxAlloc", {"error 117", failed("NULL == (pKx = VELQZEMKxAlloc())")}},
        {"KxAlloc#2", updateFailed("Kx", "NULL == (pNode = VELQZEMKxAlloc())")},
        {"OuAlloc", updateFailed("Ou", "NULL == (pNode = VELQZEMOuAlloc())")},
        {"KxStructToJson", {"error 117", failed("0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)")}},
        {"OuCanManagedByUid 1000 3", {"error 414", noPermission(3)}},
        {"OuCanManagedByUid 1000 4", {}},  // permission on the root group is enough
        {"GpoNotifyFetch", {"", "fail to VELQZEMGpoNotifyFetch uid=1000 id=$"}},
    };
    for (const std::string kind : {"Ou", "Kx"}) {
        const std::string name = "0 > VELQZEM" + kind;
        outcomes[kind + "Get"] = updateFailed(kind, name + "Get(jData[\"node_id\"].asInt64(), pNode)");
        outcomes[kind + "StructToJson linked_gpo"] =
            updateFailed(kind, name + "StructToJson(pNode, jSearchArray, jNode)");
        outcomes[kind + "JsonToStruct"] = updateFailed(kind, name + "JsonToStruct(jNode, pNode)");
        outcomes[kind + "Set"] = updateFailed(kind, name + "Set(pNode)");
    }
    // A server's record is loaded first for its group, then to be changed; a missing one counts as in the root group.
    outcomes["KxGet 9#2"] = outcomes["KxGet"];
    outcomes["KxGet 9"] = {"error 117", failed("0 > VELQZEMKxGet(serverId, pKx)"), {{ENOENT, "ok null"}}};
    const auto prepare = [] {
        prepareNodes();
        platform.servers[9]["parent_id"] = 4;
        platform.refused = {};
    };
    const Json::Value jParams =
        json("{'id':5,'target_remove':[{'node_type':2,'node_id':3},{'node_type':3,'node_id':9}]}");
    sweep(
        prepare, [&jParams] { return call(link_v1, jParams); }, outcomes);
}

}  // namespace
