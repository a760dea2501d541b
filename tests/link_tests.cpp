// Tests the exported functions that change policy links.
#include <array>
#include <cerrno>

#include <gtest/gtest.h>

#include "include/webapi_zem_lib.h"
#include "tests/sweep.h"

using namespace fake;
using namespace test;

namespace {

const Lines badParameter = {"lib: bad parameter"};

TEST(LinkedTarget, copiesTargetsWithThePolicysIdentifier)
{
    const std::array<const char*, 4> cases[] = {
        {"a missing parameter is not added", "{}", "{'id':9}", "{'id':9}"},
        {"gpo_id is replaced", "{'target_add':[{'node_id':3},{'node_id':4,'gpo_id':1}]}", "{'id':9,'target_remove':7}",
         "{'id':9,'target_remove':7,'target_add':[{'node_id':3,'gpo_id':9},{'node_id':4,'gpo_id':9}]}"},
        {"the identifier keeps its type", "{'target_add':[],'target_remove':[{}]}", "{'id':'x'}",
         "{'id':'x','target_add':[],'target_remove':[{'gpo_id':'x'}]}"},
        {"values that are not arrays are copied", "{'target_add':{'a':{}},'target_remove':'t'}", "{'id':9}",
         "{'id':9,'target_add':{'a':{}},'target_remove':'t'}"},
        {"entries that are not objects stay, a missing id counts as null", "{'target_add':[null,3,{},[]]}", "{}",
         "{'id':null,'target_add':[null,3,{'gpo_id':null},[]]}"},
        {"a null record is accepted", "{'target_add':null,'target_remove':[]}", "null",
         "{'target_add':null,'target_remove':[]}"},
    };
    reset();
    for (const auto& [szCase, szParams, szRecord, szAfter] : cases) {
        VELQ::APIRequest request(1000, "bob", json(szParams));
        Json::Value jOut = json(szRecord);
        VELQZEMHttpReqToJsonForLinkedTarget(&request, jOut);
        EXPECT_EQ(jOut, json(szAfter)) << szCase;
        EXPECT_TRUE(platform.logs.empty()) << szCase;
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
    // The case, isAdd, the policy, "linked_gpo" before and after: "" is none, nullptr means that the call is refused.
    const std::tuple<const char*, int, const char*, const char*, const char*> cases[] = {
        {"the first link is added", 1, "7", "", "{'order':[{'id':7}]}"},
        {"any isAdd but 0 adds, null counts as none", 2, "7", "null", "{'order':[{'id':7}]}"},
        {"other members stay", 1, "7", "{'x':1,'order':null}", "{'x':1,'order':[{'id':7}]}"},
        {"malformed entries stay", 1, "7", "{'order':[{'id':9,'y':1},{},null,'z']}",
         "{'order':[{'id':9,'y':1},{},null,'z',{'id':7}]}"},
        {"a linked policy is kept", 1, "7", "{'order':[{'id':7},{'id':9}]}", "{'order':[{'id':7},{'id':9}]}"},
        {"a missing id is not policy 0", 1, "0", "{'order':[{},{'id':'0'}]}", "{'order':[{},{'id':'0'},{'id':0}]}"},
        {"a fraction is truncated", 1, "7.9", "{'order':[{'id':7}]}", "{'order':[{'id':7}]}"},
        {"every link to the policy is removed", 0, "7", "{'order':[{'id':7},{'id':9},{'id':7,'y':1},{'id':8}],'x':2}",
         "{'order':[{'id':9},{'id':8}],'x':2}"},
        {"removing adds no member", 0, "7", "", ""},
        {"removing leaves null unchanged", 0, "7", "null", "null"},
        {"removing adds no order", 0, "7", "{'x':1}", "{'x':1}"},
        {"removing turns a null order into an array", 0, "7", "{'order':null}", "{'order':[]}"},
        {"removing policy 0 removes entries without id", 0, "0", "{'order':[{'y':1},{'id':3},{'id':0},null,'z']}",
         "{'order':[{'id':3},null,'z']}"},
        {"an entry without id gains null", 0, "3", "{'order':[{'y':1},{'id':3}]}", "{'order':[{'y':1,'id':null}]}"},
        {"an array instead of an object is refused", 1, "7", "[]", nullptr},
        {"an object as order is refused", 0, "7", "{'order':{}}", nullptr},
    };
    const auto node = [](const std::string& links) {
        return json(links.empty() ? "{'name':'n'}" : "{'name':'n','linked_gpo':" + links + "}");
    };
    for (const auto& [szCase, isAdd, szGpoId, szBefore, szAfter] : cases) {
        for (const std::string kind : {"Ou", "Kx"}) {
            SCOPED_TRACE(kind + ": " + szCase);
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
