// The neighbour module's handler, over the link functions that the module exports for it.
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

// The caller may not manage the group 7 and the root; the server 9 is in the group 3, the server 10 in 7.
void nodes()
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
        {"no policy", "{'target_add':[" + good + "]}"},
        {"a null policy is 0", "{'id':null,'target_add':[" + good + "]}"},
        {"a text is a number", "{'id':'5','target_add':[" + good + "]}"},
        {"a fraction is cut", "{'id':5.5,'target_add':[" + good + "]}"},
        {"out of range", "{'id':9223372036854775808,'target_add':[" + good + "]}"},
        {"no targets", "{'id':5}"},
        {"null is an array", "{'id':5,'target_add':null,'target_remove':null}"},
        {"one target without an array", "{'id':5,'target_add':" + good + "}"},
        {"the second array is not looked at", "{'id':5,'target_add':[" + good + "],'target_remove':'x'}"},
        {"the second entry is not looked at", "{'id':5,'target_remove':[" + good + ",3]}"},
        {"a null entry", "{'id':5,'target_add':[" + good + ",null]}"},
        {"no node", "{'id':5,'target_add':[{'node_type':2}]}"},
        {"a text as node", "{'id':5,'target_add':[{'node_type':2,'node_id':'3'}]}"},
        {"no kind", "{'id':5,'target_add':[{'node_id':3}]}"},
        {"a kind without links", "{'id':5,'target_add':[{'node_type':4,'node_id':3}]}"},
        {"a kind wraps around after 32 bits", "{'id':5,'target_add':[{'node_type':4294967298,'node_id':3}]}"},
    };
    for (const auto& [szFault, params] : cases) {
        nodes();
        const auto groups = platform.groups;
        EXPECT_EQ(call(link_v1, json(params)), "error 101") << szFault;
        EXPECT_EQ(platform.groups, groups) << szFault;
        EXPECT_EQ(platform.logs, Lines{malformed}) << szFault;
        EXPECT_EQ(std::count(platform.calls.begin(), platform.calls.end(), "OuCanManagedByUid 1000 3"), 0) << szFault;
    }
}

TEST(PolicyLink, addsAndRemovesInOrderOnceEveryTargetIsAllowed)
{
    // The parameters, the answer, the links of the group 3 and the server 9 after it, the log.
    const std::tuple<const char*, std::string, std::string, const char*, const char*, std::string> cases[] = {
        {"a kind is left out", "{'id':5,'target_add':[{'node_type':2,'node_id':3},{'node_type':3,'node_id':9}]}",
         "ok null", "8 5 ", "5 ", ""},
        {"removed before it is added",
         "{'id':5,'target_remove':[{'node_type':2,'node_id':3}],'target_add':[{'node_type':2,'node_id':3}]}", "ok null",
         "8 ", "", ""},
        {"the sender's stamp counts", "{'id':8,'target_remove':[{'node_type':2,'node_id':3,'gpo_id':5}]}", "ok null",
         "", "", ""},
        {"nothing to do is a failure", "{'id':5.0,'target_add':[]}", "ok null", "8 ", "", ""},
        {"a group's right comes too late",
         "{'id':5,'target_add':[{'node_type':2,'node_id':3}],'target_remove':[{'node_type':2,'node_id':7}]}",
         "error 414", "8 ", "", noPermission(7)},
        {"a server has a right of its own", "{'id':5,'target_add':[{'node_type':3,'node_id':10}]}", "error 414", "8 ",
         "", noPermission(0)},
        {"who has no right hears that a server is not there", "{'id':5,'target_add':[{'node_type':3,'node_id':11}]}",
         "error 414", "8 ", "", "Failed [0 > VELQZEMKxGet(serverId, pKx)] (2);" + noPermission(0)},
        {"what was done is undone, or more is done",
         "{'id':5,'target_add':[{'node_type':3,'node_id':9},{'node_type':2,'node_id':4},{'node_type':2,'node_id':3}]}",
         "error 117", "8 ", "5 ",
         "lib: Failed [0 > VELQZEMOuGet(jData[\"node_id\"].asInt64(), pNode)] (2);"
         "Failed [0 > VELQZEMOuUpdateLinkGpo(jTarget, isAdd)] (2)"},
    };
    for (const auto& [szFault, params, answer, szGroup, szServer, log] : cases) {
        SCOPED_TRACE(szFault);
        nodes();
        EXPECT_EQ(call(link_v1, json(params)), answer);
        EXPECT_EQ(linksOf(platform.groups[3]), szGroup);
        EXPECT_EQ(linksOf(platform.servers[9]), szServer);
        EXPECT_EQ(platform.logs, split(log));
    }
}

TEST(PolicyLink, beginsAsItsNeighboursDo)
{
    nodes();
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

TEST(PolicyLink, survivesARecordThatTheStoreSpoils)
{
    const Json::Value jParams = json("{'id':5,'target_add':[{'node_type':3,'node_id':9}]}");
    for (const char* szServer : {"null", "'x'", "[]", "{}", "{'parent_id':'3'}", "{'parent_id':1e300}"}) {
        nodes();
        platform.servers[9] = json(szServer);
        EXPECT_EQ(call(link_v1, jParams), "error 117") << szServer;
        EXPECT_EQ(platform.logs, Lines{"Failed [!jKx[szName].isInt64()]"}) << szServer;
        nodes();
        platform.freshServer = json(szServer);
        EXPECT_EQ(call(link_v1, jParams), "error 117") << szServer;
    }
    nodes();
    platform.servers[9]["linked_gpo"] = "spoiled";
    errno = EACCES;
    EXPECT_EQ(call(link_v1, jParams), "error 117") << "an old EACCES passes for a refusal";
}

TEST(PolicyLink, survivesEveryFailureOfThePlatform)
{
    const auto failed = [](const std::string& check) { return "Failed [" + check + "]"; };
    const auto updateFailed = [&](const std::string& kind, const std::string& check) {
        const std::string lines =
            "lib: " + failed(check) + ";" + failed("0 > VELQZEM" + kind + "UpdateLinkGpo(jTarget, isAdd)");
        return Outcome{"error 117", lines, {{EACCES, "error 414"}}};
    };
    const std::string toJson = "0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)";
    Outcomes outcomes = {
        {"KxAlloc", {"error 117", failed("NULL == (pKx = VELQZEMKxAlloc())")}},
        {"KxAlloc#2", updateFailed("Kx", "NULL == (pNode = VELQZEMKxAlloc())")},
        {"OuAlloc", updateFailed("Ou", "NULL == (pNode = VELQZEMOuAlloc())")},
        {"KxStructToJson", {"error 117", failed("0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)")}},
        {"OuCanManagedByUid 1000 3", {"error 414", noPermission(3)}},
        {"OuCanManagedByUid 1000 4", {}},  // who manages the root group may all the same
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
    // A server's record is loaded to see whose it is, then to change it; one that is not there is the root group's.
    outcomes["KxGet 9#2"] = outcomes["KxGet"];
    outcomes["KxGet 9"] = {"error 117", failed("0 > VELQZEMKxGet(serverId, pKx)"), {{ENOENT, "ok null"}}};
    const auto prepare = [] {
        nodes();
        platform.servers[9]["parent_id"] = 4;
        platform.refused = {};
    };
    const Json::Value jParams =
        json("{'id':5,'target_remove':[{'node_type':2,'node_id':3},{'node_type':3,'node_id':9}]}");
    sweep(
        prepare, [&jParams] { return call(link_v1, jParams); }, outcomes);
}

}  // namespace
