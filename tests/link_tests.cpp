// The policy links that other modules maintain through the module.
#include <cerrno>

#include "include/webapi_zem_lib.h"
#include "tests/fake_platform.h"

using namespace fake;

namespace {

const std::string lib = "webapi_zem_lib.cpp";

TEST(LinkedTarget, copiesAndStampsTheTargets)
{
    const struct {
        const char* szParams;
        const char* szRecord;
        const char* szAfter;
    } cases[] = {
        {"{}", "{'id':9}", "{'id':9}"},
        {"{'target_add':[{'node_id':3},{'node_id':4,'gpo_id':1}]}", "{'id':9,'target_remove':7}",
         "{'id':9,'target_remove':7,'target_add':[{'node_id':3,'gpo_id':9},{'node_id':4,'gpo_id':9}]}"},
        {"{'target_add':[],'target_remove':[{}]}", "{'id':'x'}",
         "{'id':'x','target_add':[],'target_remove':[{'gpo_id':'x'}]}"},
        {"{'target_add':{'a':{}},'target_remove':'t'}", "{'id':9}",
         "{'id':9,'target_add':{'a':{}},'target_remove':'t'}"},
        {"{'target_add':[null,3,{},[]]}", "{}", "{'id':null,'target_add':[null,3,{'gpo_id':null},[]]}"},
        {"{'target_add':null,'target_remove':[]}", "null", "{'target_add':null,'target_remove':[]}"},
    };
    for (const auto& c : cases) {
        reset();
        VELQ::APIRequest request(1000, "bob", json(c.szParams));
        Json::Value jOut = json(c.szRecord);
        VELQZEMHttpReqToJsonForLinkedTarget(&request, jOut);
        EXPECT_EQ(jOut, json(c.szAfter)) << c.szParams;
        EXPECT_TRUE(platform.logs.empty());
    }
    VELQ::APIRequest request(1000, "bob", json("{'target_add':[]}"));
    Json::Value jText = "text";
    errno = EACCES;
    VELQZEMHttpReqToJsonForLinkedTarget(nullptr, jText);
    VELQZEMHttpReqToJsonForLinkedTarget(&request, jText);
    EXPECT_EQ(jText, "text");
    EXPECT_EQ(platform.logs, (Lines{failedCall("!req", EACCES, lib), badParameter(EACCES, lib)}));
}

TEST(LinkUpdate, rewritesTheOrderedLinksOfBothKindsOfNode)
{
    const struct {
        int isAdd;
        const char* szRequest;
        const char* szBefore;
        const char* szAfter;  // empty: refused, the node unchanged
    } cases[] = {
        {1, "{'node_id':5,'gpo_id':7}", "{}", "{'linked_gpo':{'order':[{'id':7}]}}"},
        {2, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':null}", "{'linked_gpo':{'order':[{'id':7}]}}"},
        {1, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'x':1,'order':null}}",
         "{'linked_gpo':{'x':1,'order':[{'id':7}]}}"},
        {1, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'order':[{'id':9,'y':1},{},null,'z']}}",
         "{'linked_gpo':{'order':[{'id':9,'y':1},{},null,'z',{'id':7}]}}"},
        {1, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'order':[{'id':7},{'id':9}]}}",
         "{'linked_gpo':{'order':[{'id':7},{'id':9}]}}"},
        {1, "{'node_id':5,'gpo_id':0}", "{'linked_gpo':{'order':[{},{'id':'0'}]}}",
         "{'linked_gpo':{'order':[{},{'id':'0'},{'id':0}]}}"},
        {1, "{'node_id':5,'gpo_id':7.9}", "{'linked_gpo':{'order':[{'id':7}]}}", "{'linked_gpo':{'order':[{'id':7}]}}"},
        {0, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'order':[{'id':7},{'id':9},{'id':7,'y':1},{'id':8}],'x':2}}",
         "{'linked_gpo':{'order':[{'id':9},{'id':8}],'x':2}}"},
        {0, "{'node_id':5,'gpo_id':7}", "{}", "{}"},
        {0, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':null}", "{'linked_gpo':null}"},
        {0, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'x':1}}", "{'linked_gpo':{'x':1}}"},
        {0, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'order':null}}", "{'linked_gpo':{'order':[]}}"},
        {0, "{'node_id':5,'gpo_id':0}", "{'linked_gpo':{'order':[{'y':1},{'id':3},{'id':0},null,'z']}}",
         "{'linked_gpo':{'order':[{'id':3},null,'z']}}"},
        {0, "{'node_id':5,'gpo_id':3}", "{'linked_gpo':{'order':[{'y':1},{'id':3}]}}",
         "{'linked_gpo':{'order':[{'y':1,'id':null}]}}"},
        {1, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':[]}", ""},
        {0, "{'node_id':5,'gpo_id':7}", "{'linked_gpo':{'order':{}}}", ""},
    };
    for (const auto& c : cases) {
        for (const bool isServer : {false, true}) {
            reset();
            std::map<int64_t, Json::Value>& nodes = isServer ? platform.servers : platform.groups;
            nodes[5] = json(c.szBefore);
            nodes[5]["name"] = "n";
            const Json::Value jBefore = nodes[5];
            Json::Value jRequest = json(c.szRequest);
            const bool isRefused = !*c.szAfter;
            EXPECT_EQ((isServer ? VELQZEMKxUpdateLinkGpo : VELQZEMOuUpdateLinkGpo)(jRequest, c.isAdd),
                      isRefused ? -1 : 0);
            Json::Value jExpected = isRefused ? jBefore : json(c.szAfter);
            jExpected["name"] = "n";
            EXPECT_EQ(nodes[5], jExpected) << c.szBefore;
            EXPECT_EQ(platform.logs, isRefused ? Lines{badParameter(0, lib)} : Lines());
            const std::string kind = isServer ? "Kx" : "Ou";
            Lines calls = {kind + "Alloc",        kind + "Get 5", kind + "StructToJson linked_gpo",
                           kind + "JsonToStruct", kind + "Set",   kind + "Free"};
            if (isRefused) {
                calls.erase(calls.begin() + 3, calls.begin() + 5);
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
    EXPECT_EQ(platform.logs, Lines{badParameter(0, lib)});

    for (const char* szRequest :
         {"null", "7", "[]", "{}", "{'node_id':5}", "{'gpo_id':7}", "{'node_id':null,'gpo_id':7}",
          "{'node_id':5,'gpo_id':'7'}", "{'node_id':5,'gpo_id':9223372036854775808}", "{'node_id':{},'gpo_id':7}"}) {
        reset();
        jRequest = json(szRequest);
        EXPECT_EQ(VELQZEMKxUpdateLinkGpo(jRequest, 1), -1);
        EXPECT_EQ(jRequest, json(szRequest));
        EXPECT_EQ(platform.logs, Lines{badParameter(0, lib)});
        EXPECT_TRUE(platform.calls.empty());
    }
}

TEST(LinkUpdate, survivesEveryFailureOfThePlatform)
{
    for (const std::string kind : {"Ou", "Kx"}) {
        std::map<std::string, Outcome> expected;
        for (const auto& [name, arguments] : std::initializer_list<std::pair<std::string, std::string>>{
                 {"Get", "(jData[\"node_id\"].asInt64(), pNode)"},
                 {"StructToJson", "(pNode, jSearchArray, jNode)"},
                 {"JsonToStruct", "(jNode, pNode)"},
                 {"Set", "(pNode)"}}) {
            const std::string expr = "0 > VELQZEM" + kind + name + arguments;
            expected[kind + name] = {"-1 Free", failedCalls({expr}, lib)};
        }
        const std::string alloc = "NULL == (pNode = VELQZEM" + kind + "Alloc())";
        expected[kind + "Alloc"] = {"-1 Free null", failedCalls({alloc}, lib)};
        const auto prepare = [] {
            reset();
            platform.groups[5] = platform.servers[5] = Json::Value(Json::objectValue);
        };
        sweep(
            prepare,
            [&] {
                Json::Value jRequest = json("{'node_id':5,'gpo_id':7}");
                const int result = (kind == "Ou" ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jRequest, 1);
                return std::to_string(result) + " " + platform.calls.back().substr(kind.size());
            },
            expected);
    }
}

}  // namespace
