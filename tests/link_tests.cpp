// The policy links that other modules maintain through the module.
#include <array>
#include <cerrno>

#include <gtest/gtest.h>

#include "include/webapi_zem_lib.h"
#include "tests/sweep.h"

using namespace fake;
using namespace test;

namespace {

const Lines badParameter = {"lib: bad parameter"};

TEST(LinkedTarget, copiesAndStampsTheTargets)
{
    const std::array<const char*, 4> cases[] = {
        {"what is not sent is made up", "{}", "{'id':9}", "{'id':9}"},
        {"an old stamp stays", "{'target_add':[{'node_id':3},{'node_id':4,'gpo_id':1}]}", "{'id':9,'target_remove':7}",
         "{'id':9,'target_remove':7,'target_add':[{'node_id':3,'gpo_id':9},{'node_id':4,'gpo_id':9}]}"},
        {"the stamp is converted", "{'target_add':[],'target_remove':[{}]}", "{'id':'x'}",
         "{'id':'x','target_add':[],'target_remove':[{'gpo_id':'x'}]}"},
        {"an object is taken for an array", "{'target_add':{'a':{}},'target_remove':'t'}", "{'id':9}",
         "{'id':9,'target_add':{'a':{}},'target_remove':'t'}"},
        {"what is no object is stamped", "{'target_add':[null,3,{},[]]}", "{}",
         "{'id':null,'target_add':[null,3,{'gpo_id':null},[]]}"},
        {"a null record is refused", "{'target_add':null,'target_remove':[]}", "null",
         "{'target_add':null,'target_remove':[]}"},
    };
    reset();
    for (const auto& [szFault, szParams, szRecord, szAfter] : cases) {
        VELQ::APIRequest request(1000, "bob", json(szParams));
        Json::Value jOut = json(szRecord);
        VELQZEMHttpReqToJsonForLinkedTarget(&request, jOut);
        EXPECT_EQ(jOut, json(szAfter)) << szFault;
        EXPECT_TRUE(platform.logs.empty()) << szFault;
    }
    VELQ::APIRequest request(1000, "bob", json("{'target_add':[]}"));
    Json::Value jText = "text";
    errno = EACCES;
    VELQZEMHttpReqToJsonForLinkedTarget(nullptr, jText);
    VELQZEMHttpReqToJsonForLinkedTarget(&request, jText);
    EXPECT_EQ(jText, "text");
    EXPECT_EQ(platform.logs, split("lib: Failed [!req] (13);lib: bad parameter (13)"));
}

TEST(LinkUpdate, rewritesTheOrderedLinksOfBothKindsOfNode)
{
    // isAdd, the policy, "linked_gpo" before and after; "": none; nullptr: refused.
    const std::tuple<const char*, int, const char*, const char*, const char*> cases[] = {
        {"no place for the first", 1, "7", "", "{'order':[{'id':7}]}"},
        {"only 1 adds", 2, "7", "null", "{'order':[{'id':7}]}"},
        {"other members are lost", 1, "7", "{'x':1,'order':null}", "{'x':1,'order':[{'id':7}]}"},
        {"odd entries are lost", 1, "7", "{'order':[{'id':9,'y':1},{},null,'z']}",
         "{'order':[{'id':9,'y':1},{},null,'z',{'id':7}]}"},
        {"added twice", 1, "7", "{'order':[{'id':7},{'id':9}]}", "{'order':[{'id':7},{'id':9}]}"},
        {"no id or a text passes for 0", 1, "0", "{'order':[{},{'id':'0'}]}", "{'order':[{},{'id':'0'},{'id':0}]}"},
        {"a fraction is another policy", 1, "7.9", "{'order':[{'id':7}]}", "{'order':[{'id':7}]}"},
        {"only the first goes", 0, "7", "{'order':[{'id':7},{'id':9},{'id':7,'y':1},{'id':8}],'x':2}",
         "{'order':[{'id':9},{'id':8}],'x':2}"},
        {"a member is made by removing", 0, "7", "", ""},
        {"null is changed by removing", 0, "7", "null", "null"},
        {"an order is made by removing", 0, "7", "{'x':1}", "{'x':1}"},
        {"a null order stays", 0, "7", "{'order':null}", "{'order':[]}"},
        {"no id does not pass for 0", 0, "0", "{'order':[{'y':1},{'id':3},{'id':0},null,'z']}",
         "{'order':[{'id':3},null,'z']}"},
        {"the entry gains no id", 0, "3", "{'order':[{'y':1},{'id':3}]}", "{'order':[{'y':1,'id':null}]}"},
        {"an array is overwritten", 1, "7", "[]", nullptr},
        {"an object as order is walked through", 0, "7", "{'order':{}}", nullptr},
    };
    const auto node = [](const std::string& links) {
        return json(links.empty() ? "{'name':'n'}" : "{'name':'n','linked_gpo':" + links + "}");
    };
    for (const auto& [szFault, isAdd, szGpoId, szBefore, szAfter] : cases) {
        for (const std::string kind : {"Ou", "Kx"}) {
            SCOPED_TRACE(kind + ": " + szFault);
            reset();
            Json::Value& jNode = (kind == "Kx" ? platform.servers : platform.groups)[5];
            jNode = node(szBefore);
            Json::Value jRequest = json("{'node_id':5,'gpo_id':%}", szGpoId);
            const int result = (kind == "Kx" ? VELQZEMKxUpdateLinkGpo : VELQZEMOuUpdateLinkGpo)(jRequest, isAdd);
            const bool isDone = szAfter != nullptr;
            EXPECT_EQ(result, isDone ? 0 : -1);
            EXPECT_EQ(jNode, node(isDone ? szAfter : szBefore));
            EXPECT_EQ(platform.logs, isDone ? Lines() : badParameter);
            Lines calls = {kind + "Alloc", kind + "Get 5", kind + "StructToJson linked_gpo", kind + "Free"};
            if (isDone) {
                calls.insert(calls.end() - 1, {kind + "JsonToStruct", kind + "Set"});
            }
            EXPECT_EQ(platform.calls, calls);
        }
    }
}

TEST(LinkUpdate, comparesUnsignedIdentifiersAndRefusesUnreadableRequests)
{
    reset();
    platform.groups[5] = json("{'linked_gpo':{'order':[{'id':7}]}}");
    Json::Value jRequest = json("{'node_id':5}");
    jRequest["gpo_id"] = Json::Value(7u);
    EXPECT_EQ(VELQZEMOuUpdateLinkGpo(jRequest, 1), 0);
    EXPECT_EQ(platform.groups[5]["linked_gpo"]["order"].size(), 1u);

    platform.groups[5] = "no object";
    EXPECT_EQ(VELQZEMOuUpdateLinkGpo(jRequest, 1), -1);
    EXPECT_EQ(platform.logs, badParameter);

    for (const char* szRequest :
         {"null", "7", "[]", "{}", "{'node_id':5}", "{'gpo_id':7}", "{'node_id':null,'gpo_id':7}",
          "{'node_id':5,'gpo_id':'7'}", "{'node_id':5,'gpo_id':9223372036854775808}", "{'node_id':{},'gpo_id':7}"}) {
        reset();
        jRequest = json(szRequest);
        EXPECT_EQ(VELQZEMKxUpdateLinkGpo(jRequest, 1), -1) << szRequest;
        EXPECT_EQ(jRequest, json(szRequest));
        EXPECT_EQ(platform.logs, badParameter) << szRequest;
        EXPECT_TRUE(platform.calls.empty()) << szRequest;
    }
}

TEST(LinkUpdate, survivesEveryFailureOfThePlatform)
{
    for (const std::string kind : {"Ou", "Kx"}) {
        const auto failed = [&](const std::string& check, const char* szResult = "-1 Free") {
            return Outcome{szResult, "lib: Failed [" + check + "]"};
        };
        const std::string name = "0 > VELQZEM" + kind;
        const Outcomes outcomes = {
            {kind + "Alloc", failed("NULL == (pNode = VELQZEM" + kind + "Alloc())", "-1 Free null")},
            {kind + "Get", failed(name + "Get(jData[\"node_id\"].asInt64(), pNode)")},
            {kind + "StructToJson", failed(name + "StructToJson(pNode, jSearchArray, jNode)")},
            {kind + "JsonToStruct", failed(name + "JsonToStruct(jNode, pNode)")},
            {kind + "Set", failed(name + "Set(pNode)")},
        };
        const auto prepare = [] {
            reset();
            platform.groups[5] = platform.servers[5] = Json::Value(Json::objectValue);
        };
        const auto run = [&] {
            Json::Value jRequest = json("{'node_id':5,'gpo_id':7}");
            const int result = (kind == "Ou" ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jRequest, 1);
            return std::to_string(result) + " " + platform.calls.back().substr(kind.size());
        };
        sweep(prepare, run, outcomes);
    }
}

}  // namespace
