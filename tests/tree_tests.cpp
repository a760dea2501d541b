// Tests the tree: nesting, display members, decoration, and the whole handler.
#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

#include "tests/sweep.h"
#include "tree/linked_policies.h"
#include "tree/node_decoration.h"
#include "tree/node_postprocess.h"
#include "tree/tree_assembly.h"

using namespace fake;
using namespace test;

namespace {

const std::string badParameter = withErrno("bad parameter", EACCES);
const std::string mismatch = withErrno("denied: Failed [!IsJsonParentTypeMatch(jParent, jChild)]", EACCES);

// Returns a tree as text: "type.id[children]" for each node, with its "node_id", and "?" for any other value.
std::string shape(const Json::Value& jNodes)
{
    std::string text;
    for (const Json::Value& jNode : jNodes) {
        text += text.empty() ? "" : " ";
        if (!jNode.isObject()) {
            text += "?";
            continue;
        }
        EXPECT_FALSE(jNode.isMember("find_parent"));
        text += (jNode["node_type"].isInt() ? jNode["node_type"].asString() : "-") + "." +
                (jNode["node_id"].isArray() ? "-" : jNode["node_id"].asString());
        if (jNode["children"].isArray()) {
            text += "[" + shape(jNode["children"]) + "]";
        }
    }
    return text;
}

// Makes nodes of one kind from arrays [identifier, parent, further members]; keeps other values as they are.
Json::Value nodes(int kind, const char* szNodes)
{
    Json::Value jNodes = json(szNodes);
    for (Json::Value& jNode : jNodes) {
        if (jNode.isArray()) {
            const Json::Value jShort = jNode;
            jNode = json("{'node_type':%,'id':%,'node_id':%,'parent_id':%}", kind, jShort[0], jShort[0], jShort[1]);
            for (const std::string& name : jShort[2].getMemberNames()) {
                jNode[name] = jShort[2][name];
            }
        }
    }
    return jNodes;
}

std::string nest(const char* szGroups, const char* szServers)
{
    Json::Value jOu = nodes(2, szGroups), jKx = nodes(3, szServers), jGpo(Json::arrayValue), jData(Json::arrayValue);
    EXPECT_EQ(BuildTreeJson(jOu, jKx, jGpo, jData), 0);
    return shape(jData);
}

TEST(Assembly, attachesEveryNodeToTheParentThatItNames)
{
    const std::array<const char*, 4> cases[] = {
        {"no nodes make an empty tree", "[]", "[]", ""},
        {"parents before children", "[[1,0],[2,1],[3,2]]", "[]", "2.1[2.2[2.3]]"},
        {"children before parents", "[[3,2],[2,1],[1,0]]", "[]", "2.1[2.2[2.3]]"},
        {"sub-groups before servers", "[[2,1],[3,2],[1,0],[4,1]]", "[[9,3],[8,1]]", "2.1[2.2[2.3[3.9]] 2.4 3.8]"},
        {"a node that names itself is at the top level", "[[5,5],[1,0]]", "[]", "2.5 2.1"},
        {"the last node of a cycle is at the top level", "[[1,3],[2,1],[3,2],[4,1]]", "[]", "2.3[2.1[2.2 2.4]]"},
        {"nodes without a parent keep their order", "[[1,7]]", "[[1,7],[2,1],[3,8]]", "2.1[3.2] 3.1 3.3"},
        {"a missing parent_id counts as 0", "[[0,9],[1,0]]", "[{'node_type':3,'id':4,'node_id':4}]", "2.0[2.1 3.4]"},
        {"a null parent_type means a group", "[[1,0],[2,1,{'parent_type':null}]]", "[]", "2.1[2.2]"},
        {"the parent's kind must match", "[[1,0],[2,1,{'parent_type':3}]]", "[]", "2.1 2.2"},
        {"a text as parent_type matches no parent", "[[1,0],[2,1,{'parent_type':'x'}]]", "[]", "2.1 2.2"},
        {"a text as parent_id matches no parent", "[[1,0],[2,'1']]", "[]", "2.1 2.2"},
        {"a node with a text as kind is no parent", "[[1,0,{'node_type':'2'}],[2,1]]", "[]", "-.1 2.2"},
        {"a node with an array as identifier has a parent", "[[[],2],[2,0],[3,0]]", "[]", "2.2[2.-] 2.3"},
        {"a node with a real as kind is no parent", "[[1,0,{'node_type':2.0}],[2,1]]", "[]", "2.0.1 2.2"},
        {"a node with a text as children is no parent", "[[1,0,{'children':'x'}],[2,1]]", "[]", "2.1 2.2"},
        {"a child that came with its parent can be a parent",
         "[[1,0,{'children':[{'node_type':2,'id':7,'node_id':7}]}],[2,7]]", "[]", "2.1[2.7[2.2]]"},
        {"a node is not attached to its own child", "[[[],7,{'children':[{'node_type':2,'id':7,'node_id':7}]}]]", "[]",
         "2.-[2.7]"},
        {"a value that is not an object stays at the top level", "[null,7,[1,0],[2,1]]", "[null]", "? ? 2.1[2.2] ?"},
        {"the first of two equal nodes is the parent", "[[1,0],[1,0],[2,1]]", "[]", "2.1[2.2] 2.1"},
        {"earlier servers are parents", "[[1,0]]", "[[1,1],[2,1,{'node_type':4,'parent_type':3}]]", "2.1[3.1[4.2]]"},
        {"later servers are no parents", "[[1,0]]", "[[2,1,{'node_type':4,'parent_type':3}],[1,1]]", "2.1[3.1] 4.2"},
    };
    for (const auto& [szCase, szGroups, szServers, szTree] : cases) {
        for (const int err : {0, EACCES}) {  // by index and by search
            reset();
            errno = err;
            EXPECT_EQ(nest(szGroups, szServers), szTree) << szCase << err;
        }
    }
}

TEST(Assembly, marksAttachedElementsAndRefusesOtherValuesThanArrays)
{
    reset();
    Json::Value jOu = nodes(2, "[[2,1],[1,0]]"), jKx = nodes(3, "[[1,1]]");
    Json::Value jData = "anything", jOut;
    Json::Value jBad(Json::objectValue);
    EXPECT_EQ(ConvertTreeJsonToParent(&jOu, &jOu, &jData), 0);
    EXPECT_EQ(jOu[0]["find_parent"], 1);
    Json::Value jNullMarker = nodes(2, "[[1,0,{'find_parent':null}]]");
    EXPECT_EQ(ConvertTreeJsonToParent(&jNullMarker, &jNullMarker, &jOut), 0);
    EXPECT_EQ(shape(jOut), "2.1");
    Json::Value jTree = nodes(2, "[[1,0,{'find_parent':1}]]");  // marked as attached elsewhere: no parent here
    EXPECT_EQ(ConvertTreeJsonToParent(&jKx, &jTree, NULL), 0);
    EXPECT_EQ(shape(jTree), "2.1 3.1");
    for (const auto& [src, dst] :
         {std::pair<Json::Value*, Json::Value*>(NULL, &jData), {&jBad, &jData}, {&jData, NULL}, {&jData, &jBad}}) {
        platform.logs.clear();
        EXPECT_EQ(ConvertTreeJsonToParent(src, dst, &jOu), -1);
        EXPECT_EQ(platform.logs, Lines{"bad parameter"});
    }
    EXPECT_EQ(shape(jData), "2.1[2.2]");
}

TEST(Assembly, logsKindMismatchesAndMalformedNodesInTheOrderOfTheSearch)
{
    reset();
    errno = EACCES;
    EXPECT_EQ(nest("[[1,0],5]", "[[1,1,{'parent_type':4}]]"), "2.1 ? 3.1");
    EXPECT_EQ(platform.logs, (Lines{badParameter, badParameter, mismatch, badParameter, badParameter,
                                    withErrno("denied: Failed [0 > postHandleNode(jData[i])]", EACCES)}));
    const Json::Value jOu = nodes(2, "[[1,0],5]");
    platform.logs.clear();
    EXPECT_FALSE(IsJsonParentTypeMatch(jOu[0], jOu[1]));
    EXPECT_FALSE(IsJsonParentTypeMatch(jOu[1], jOu[0]));
    EXPECT_EQ(platform.logs, Lines(2, badParameter));
}

// Makes a random array of nodes of one kind. oddness: how many of a thousand members are malformed.
Json::Value randomNodes(std::mt19937& random, int kind, unsigned oddness)
{
    const auto pick = [&](unsigned count) { return static_cast<int>(random() % count); };
    const Json::Value jOdd[] = {Json::Value(), "x", 2u, 2.0, true, Json::Value(UINT64_MAX), json("[{}]"), json("{}")};
    Json::Value jNodes(Json::arrayValue);
    std::vector<int> ids(10);
    std::iota(ids.begin(), ids.end(), 0);
    std::shuffle(ids.begin(), ids.end(), random);
    for (int i = pick(10); i-- > 0;) {
        Json::Value jNode;
        jNode["node_type"] = kind;
        jNode["id"] = jNode["node_id"] = ids[static_cast<size_t>(i)];
        jNode["parent_id"] = pick(10);
        if (pick(4) == 0) {
            jNode["parent_type"] = 2 + pick(3);
        }
        for (const char* szName : {"node_type", "id", "parent_id", "parent_type", "children", "find_parent"}) {
            if (random() % 1000 < oddness) {
                jNode[szName] = jOdd[pick(8)];
            }
            if (random() % 4000 < oddness) {
                jNode.removeMember(szName);
            }
        }
        jNodes.append(random() % 4000 < oddness ? jOdd[pick(8)] : jNode);
    }
    return jNodes;
}

TEST(Assembly, answersTheSameByIndexAndBySearch)
{
    std::mt19937 random(20261122);
    platform.isQuiet = true;
    for (int round = 0; round < 24000; ++round) {
        const unsigned oddness = round % 3 == 0 ? 30 : round % 3 == 1 ? 2 : 0;
        const Json::Value jLists[] = {randomNodes(random, 2, oddness), randomNodes(random, 3, oddness),
                                      randomNodes(random, 4, oddness)};
        Json::Value jTrees[2];
        for (const int way : {0, 1}) {
            Json::Value jCopies[] = {jLists[0], jLists[1], jLists[2]};
            jTrees[way] = Json::Value(Json::arrayValue);
            errno = way == 0 ? 0 : EACCES;  // EACCES forces the search, which logs every kind mismatch
            EXPECT_EQ(BuildTreeJson(jCopies[0], jCopies[1], jCopies[2], jTrees[way]), 0);
        }
        ASSERT_EQ(jTrees[0], jTrees[1]) << round << jLists[0] << jLists[1] << jLists[2];
        if (round % 4 == 0) {  // also with decoration before nesting
            platform.listedGroups = jLists[0];
            platform.listedServers = jLists[1];
            platform.listedPolicies = jLists[2];
            const std::string byIndex = call("Tree get", Json::Value());
            errno = EACCES;
            ASSERT_EQ(call("Tree get", Json::Value()), byIndex) << round;
            errno = 0;
        }
    }
    reset();
}

TEST(PostProcessing, setsTheDisplayMembersOfEveryNode)
{
    reset();
    Json::Value jNode = json("{'id':1,'name':'a','children':[{'id':2},7,{'id':3,'children':[]},{'children':'x'}]}");
    const Json::Value jExpected = json(
        "{'name':'a','expanded':true,'children':[{'children':null,'expanded':false,'loaded':true},7,"
        "{'children':[],'expanded':true},{'children':'x','expanded':false,'loaded':true}]}");
    errno = EACCES;
    for (int round : {1, 2}) {
        platform.logs.clear();
        EXPECT_EQ(postHandleNode(jNode), 0) << round;
        EXPECT_EQ(jNode, jExpected);
        EXPECT_EQ(platform.logs,
                  (Lines{badParameter, withErrno("denied: Failed [postHandleNode((*pjArray)[i])]", EACCES)}));
    }
    Json::Value jNull;
    EXPECT_EQ(postHandleNode(jNull), -1);
    EXPECT_TRUE(jNull.isNull());
}

TEST(Decoration, addsDelegatesWithCompleteInformation)
{
    const std::string whole = "{\"userNameCache\":\"ann\",\"domainName\":7,\"domainType\":null,\"more\":1}";
    const char* const szNames = "'name':'ann','domainName':7,'domainType':null";
    Json::StreamWriterBuilder builder;
    reset();
    platform.delegates[{2, 5}] = {{nullptr, 2, UINT64_MAX, whole}, {nullptr, -9, 7, whole}};
    Json::Value jNode = json("{'id':5,'node_type':2,'delegate':'before'}");
    EXPECT_EQ(get_delegate_by_node(jNode), 0);
    EXPECT_EQ(Json::writeString(builder, jNode["delegate"]),
              Json::writeString(builder, json(std::string("[{'user_type':2,'ugid':18446744073709551615,") + szNames +
                                              "},{'user_type':-9,'ugid':7," + szNames + "}]")));
    for (const std::string extra :
         {"", "[1]", "{\"domainName\":1,\"userNameCache\":1}", "{\"domainType\":1,\"userNameCache\":1}",
          "{\"domainType\":1,\"domainName\":1}", "{\"domainType\":1,\"domainName\":1,\"userNameCache\":1}x"}) {
        reset();
        platform.delegates[{2, 5}] = {{nullptr, 2, 7, extra}};
        errno = EACCES;
        jNode["delegate"] = "before";
        EXPECT_EQ(get_delegate_by_node(jNode), 0);
        EXPECT_EQ(jNode["delegate"], "before") << extra;
        EXPECT_EQ(platform.logs.size(), 1u) << extra;
    }
    for (const char* szNode : {"{'id':'5','node_type':2}", "{'id':5,'node_type':4294967296}", "null", "7"}) {
        reset();
        jNode = json(szNode);
        EXPECT_EQ(get_delegate_by_node(jNode), -1);
        EXPECT_EQ(jNode, json(szNode));
        EXPECT_EQ(platform.logs, Lines{"bad parameter"});
        EXPECT_TRUE(platform.calls.empty());
    }
}

TEST(Decoration, resolvesLinksToPoliciesThatTheStoreKnows)
{
    // The case, a node before and after, the identifiers of the policies that are marked as linked.
    const std::array<const char*, 4> cases[] = {
        {"missing links become null", "{}", "{'linked_gpo':null}", "[]"},
        {"an array instead of an object stays", "{'linked_gpo':[1]}", "{'linked_gpo':[1]}", "[]"},
        {"a missing order becomes null", "{'linked_gpo':{'x':1}}", "{'linked_gpo':{'x':1,'order':null}}", "[]"},
        {"an object as order stays", "{'linked_gpo':{'order':{'id':1}}}", "{'linked_gpo':{'order':{'id':1}}}", "[]"},
        {"an unknown policy keeps its id", "{'linked_gpo':{'order':[{'id':1,'x':2},{'id':7},{'id':1}]}}",
         "{'linked_gpo':{'order':[{'x':2,'gpo_id':1,'gpo_name':'one','gpo_desc':'first'},{'id':7,'gpo_id':7},"
         "{'gpo_id':1,'gpo_name':'one','gpo_desc':'first'}]}}",
         "[1,1,7]"},
        {"malformed entries are not resolved", "{'linked_gpo':{'order':[{},null,3,{'id':null},{'id':'1'}]}}",
         "{'linked_gpo':{'order':[{'id':null},null,3,{'id':null},{'id':'1'}]}}", "[]"},
        {"a policy without id counts as policy 0", "{'linked_gpo':{'order':[{'id':0}]}}",
         "{'linked_gpo':{'order':[{'id':0,'gpo_id':0}]}}", "[null]"},
    };
    for (const auto& [szCase, szNode, szAfter, szPolicies] : cases) {
        reset();
        platform.policies[1] = {"one", "first"};
        Json::Value jGpo = json("[{'id':1},4,{'id':2},{'id':1},{'id':'1'},{'id':7},{}]");
        Json::Value jNode = json(szNode), jNull, jNoArray = 7;
        EXPECT_EQ(get_gpo_info_by_node(jNode, jGpo), 0) << szCase;
        EXPECT_EQ(jNode, json(szAfter)) << szCase;
        Json::Value jLinked(Json::arrayValue);
        for (const Json::Value& jPolicy : jGpo) {
            if (jPolicy.isObject() && jPolicy.isMember("linked")) {
                EXPECT_EQ(jPolicy["linked"], true);
                jLinked.append(jPolicy["id"]);
            }
        }
        EXPECT_EQ(jLinked, json(szPolicies)) << szCase;
        jNode = json(szNode);
        EXPECT_EQ(get_gpo_info_by_node(jNode, jNoArray), 0) << szCase;
        EXPECT_EQ(get_gpo_info_by_node(jNull, jGpo), -1);
    }
    reset();
}

void prepareFleet()
{
    reset();
    platform.listedGroups = json(
        "[{'node_type':2,'id':1,'parent_id':0,'name':'a','linked_gpo':{'order':[{'id':1}]}},"
        "{'node_type':2,'id':2,'parent_id':1,'parent_type':2,'name':'b','find_parent':1}]");
    platform.listedServers = json(
        "[{'node_type':3,'id':1,'parent_id':2,'sid':'s','name':'x','linked_gpo':{'order':[{'id':2}]}},"
        "{'node_type':3,'id':2,'parent_id':9,'sid':1}]");
    platform.listedPolicies =
        json("[{'node_type':4,'id':1,'parent_id':1,'setting':{'version':1}},{'node_type':4,'id':2,'parent_id':9}]");
    platform.policies = {{1, {"one", "first"}}, {2, {"two", ""}}};
    platform.delegates[{3, 1}] = {
        {nullptr, 2, 7, "{\"userNameCache\":\"ann\",\"domainName\":\"\",\"domainType\":\"d\"}"}};
}

const char* const szFleetTree =
    "[{'node_type':2,'parent_id':0,'name':'a','expanded':true,'linked_gpo':{'order':["
    "{'gpo_id':1,'gpo_name':'one','gpo_desc':'first'}]},'children':["
    "{'node_type':2,'parent_id':1,'parent_type':2,'name':'b','linked_gpo':null,'expanded':true,'children':["
    "{'node_type':3,'parent_id':2,'name':'x','linked_gpo':{'order':["
    "{'gpo_id':2,'gpo_name':'two','gpo_desc':''}]},'children':null,'expanded':false,'loaded':true,"
    "'delegate':[{'user_type':2,'name':'ann','domainName':'','domainType':'d','ugid':7}]}]},"
    "{'node_type':4,'parent_id':1,'setting':{'major':3},'linked':true,'children':null,'expanded':false,"
    "'loaded':true}]},"
    "{'node_type':3,'parent_id':9,'linked_gpo':null,'children':null,'expanded':false,'loaded':true},"
    "{'node_type':4,'parent_id':9,'linked':true,'children':null,'expanded':false,'loaded':true}]";

TEST(TreeFetch, answersTheWholeTreeInOnePass)
{
    prepareFleet();
    const std::string answer = call("Tree get", json("{'offset':1}"), 4000000000u);
    EXPECT_EQ(json(answer.substr(3)), json(szFleetTree)) << answer;
    EXPECT_TRUE(platform.logs.empty());
    const std::string policy = ";GpoItemGetName;GpoItemGetDescription;GpoFree;";
    EXPECT_EQ(platform.calls,
              split("GetLoginUID;SetError 117;HashAlloc 512;HashSetValue ugid 4000000000;HashSetValue user_type 8;"
                    "ListTreeByUidHash;OuStructToJson;OuStructToJson;KxStructToJson;"
                    "KxStructToJson;GpoStructToJson;GpoStructToJson;GetUIVersion 0;GpoGetWithVersionConvert;"
                    "DelegateListByTarget 2 1;DelegateUpdateExtraInfoList 2 null TRUE;GpoAlloc;GpoGet 1" +
                    policy +
                    "DelegateListByTarget 2 2;DelegateUpdateExtraInfoList 2 null TRUE;"
                    "DelegateListByTarget 3 1;DelegateUpdateExtraInfoList 3 list TRUE;DelegateItemGetUserType;"
                    "DelegateItemGetUGID;DelegateNext;GpoAlloc;GpoGet 2" +
                    policy +
                    "DelegateListByTarget 3 2;DelegateUpdateExtraInfoList 3 null "
                    "TRUE;SetSuccess;OuListFree;KxListFree;GpoListFree;HashFree"));

    reset();  // nothing is visible: an empty tree, and only the hash to release
    EXPECT_EQ(call("Tree get", Json::Value()), "ok []");
    EXPECT_EQ(platform.calls.back(), "HashFree");
    EXPECT_EQ(platform.calls.end()[-2], "SetSuccess");
    platform.uiVersion = Json::Value();
    EXPECT_EQ(call("Tree get", Json::Value()), "error 117");
}

TEST(TreeFetch, survivesEveryFailureOfThePlatform)
{
    const auto failed = [](const std::string& check, const std::string& after = "") {
        return Outcome{"error 117", "Failed [" + check + "]" + after};
    };
    const auto delegates = [&](const std::string& check, const std::string& kind) {
        return failed(check, ";Failed [0 > get_delegate_by_node(jArray[i])];Failed [0 >add_info_to_node(jData" + kind +
                                 ", jDataGpo)]");
    };
    const std::string list = "0 > VELQZEMDelegateListByTarget(id, (int)nodeType, &pDelegateHead, &count)";
    const std::string update = "0 > VELQDelegateUpdateExtraInfoList(pDelegateHead, TRUE)";
    const auto noPolicy = [&](const std::string& kind) {
        return failed("NULL == (pGpo = VELQZEMGpoAlloc())",
                      ";Failed [0 > get_gpo_info_by_node(jArray[i], jGpoArray)];Failed [0 >add_info_to_node(jData" +
                          kind + ", jDataGpo)]");
    };
    const Outcomes outcomes = {
        {"HashAlloc", {"error 117", "denied: Fail EACESS;malloc hash failed"}},
        {"HashSetValue ugid", failed("0 > VLIBCSzHashSetValue(&pHash, \"ugid\", szUid)")},
        {"HashSetValue user_type", failed("0 > VLIBCSzHashSetValue(&pHash, \"user_type\", szUserType)")},
        {"ListTreeByUidHash",
         {"error 117", "denied: Failed [0 > VELQZEMListTreeByUidHash(pHash, &pHeadOu, &pHeadKx, &pHeadGpo)]"}},
        {"OuStructToJson", {"error 117", ""}},
        {"KxStructToJson", {"error 117", ""}},
        {"GpoStructToJson", {"error 117", ""}},
        {"GetUIVersion", failed("jUIVersion.isNull()")},
        {"GpoGetWithVersionConvert",
         failed("0 > VELQZEMGpoGetWithVersionConvert(jDataGpo[i][\"setting\"], jUIVersion)")},
        {"DelegateListByTarget 2", delegates(list, "Ou")},
        {"DelegateListByTarget 3", delegates(list, "Kx")},
        {"DelegateUpdateExtraInfoList 2", delegates(update, "Ou")},
        {"DelegateUpdateExtraInfoList 3", delegates(update, "Kx")},
        {"DelegateItemGetUserType", delegates("0 > VELQZEMDelegateItemGetUserType(&userType, pDelegate)", "Kx")},
        {"DelegateItemGetUGID", delegates("0 > VELQZEMDelegateItemGetUGID(&ugid, pDelegate)", "Kx")},
        {"GpoAlloc", noPolicy("Ou")},
        {"GpoAlloc#2", noPolicy("Kx")},
        {"GpoGet", {"", "denied: Failed [0 >VELQZEMGpoGet(gpoId, pGpo)]"}},
        {"GpoItemGetName", {"", "denied: Failed [0 > VELQZEMGpoItemGetName(_SAS(szBuf), pGpo)]"}},
        {"GpoItemGetDescription", {"", "denied: Failed [0 > VELQZEMGpoItemGetDescription(_SAS(szBuf), pGpo)]"}},
    };
    const auto run = [] {
        const std::string result = call("Tree get", Json::Value());
        std::erase(platform.logs, mismatch);  // with EACCES nesting logs every kind mismatch, too
        return result.substr(0, 2) == "ok" ? "answered" : result;
    };
    sweep(prepareFleet, run, outcomes);
}

TEST(TreeFetch, handlesMalformedRecords)
{
    // The case, groups, policies, the answer, the log lines without errno.
    const std::array<const char*, 5> cases[] = {
        {"a group that is not an object fails the request", "[7]", "[]", "error 117",
         "bad parameter;Failed [0 > get_delegate_by_node(jArray[i])];Failed [0 >add_info_to_node(jDataOu, jDataGpo)]"},
        {"markers in a record are removed",
         "[{'node_type':2,'id':1,'find_parent':1,'children':[{'find_parent':1,'children':7}]}]", "[]",
         "ok [{'children':[{'children':7,'expanded':false,'loaded':true}],'expanded':true,'linked_gpo':null,"
         "'node_type':2}]",
         ""},
        {"a policy that is not an object is answered", "[]", "[7]", "ok [7]",
         "denied: Failed [!jDataGpo[i].isMember(\"setting\")];bad parameter;"
         "denied: Failed [0 > postHandleNode(jData[i])]"},
    };
    for (const auto& [szCase, szGroups, szPolicies, szAnswer, szLogs] : cases) {
        reset();
        platform.listedGroups = json(szGroups);
        platform.listedPolicies = json(szPolicies);
        errno = EACCES;
        EXPECT_EQ(call("Tree get", Json::Value()), szAnswer) << szCase;
        Lines logs = split(szLogs);
        std::transform(logs.begin(), logs.end(), logs.begin(), [](auto& line) { return withErrno(line, EACCES); });
        EXPECT_EQ(platform.logs, logs) << szCase;
    }
    Json::Value jArray(Json::arrayValue);
    Json::Value jBad;
    EXPECT_EQ(add_info_to_node(jBad, jArray), -1);
    Json::Value* jArguments[] = {&jArray, &jArray, &jArray, &jArray};
    for (Json::Value*& pjArgument : jArguments) {
        pjArgument = &jBad;
        EXPECT_EQ(BuildTreeJson(*jArguments[0], *jArguments[1], *jArguments[2], *jArguments[3]), -1);
        pjArgument = &jArray;
    }
    EXPECT_EQ(FindJsonParent(jBad, jBad), nullptr);
}

}  // namespace
