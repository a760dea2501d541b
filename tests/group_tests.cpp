// Group create, set, delete, the request conversion, and the one-level listing.
#include <algorithm>
#include <cerrno>

#include "include/webapi_zem_ou.h"
#include "tests/fake_platform.h"

using namespace fake;

namespace {

const std::string noPermission = "3 webapi_zem_ou.cpp:L No permission for normal user [bob] on group [";
const std::string storeReason = "]. [0x0D01 store.cpp:77]";
const std::string rootLine = "3 webapi_zem_ou.cpp:L Deleting ROOT OU is not allowed.";
const std::string overrideText =
    "0 > VELQZEMDelegateOverrideListByTarget((long)multiple_data[i][\"id\"].asInt64(), VELQ_ZEM_TYPE_OU, "
    "(multiple_data[i]))";
const std::string setListText =
    "0 > VELQZEMDelegateSetListByTarget((long)multiple_data[i][\"id\"].asInt64(), VELQ_ZEM_TYPE_OU, "
    "(multiple_data[i]))";
const std::string jsonToStructText = "0 > VELQZEMOuJsonToStruct(multiple_data[i], &ou)";
const std::string missingId = "false == multiple_data[i].isMember(\"id\")";

// What the handlers ask of the store: the calls without those to the request.
Lines storeCalls()
{
    Lines calls;
    for (const std::string& name : platform.calls) {
        if (name.rfind("HasParam", 0) != 0 && name.rfind("GetParam", 0) != 0 && name != "GetLoginUID") {
            calls.push_back(name);
        }
    }
    return calls;
}

void groups()
{
    reset();
    for (int64_t id : {0, 3, 4, 7}) {
        platform.groups[id] = json("{'name':'g','parent_id':0}");
        platform.groups[id]["id"] = Json::Value(id);
    }
    platform.mayManage[7] = false;
}

TEST(GroupHandlers, answerEachRequestAndRefusalAsDocumented)
{
    const std::string bad = badParameter(0), notArray = failedCall("false == jTmp.isArray()", 0);
    const std::string noRecord = failedCall("true == jTmp.isNull()", 0), noStruct = failedCall(jsonToStructText, 0);
    const std::string noId = failedCall(missingId, 0), refused = noPermission + "7" + storeReason;
    const std::string may = "OuCanManagedByUid 1000 ", delete3 = may + "3;OuDeleteAllByID 3;";
    const std::string refuse7 = may + "7;SetError 414;ErrorGetLine;ErrorGetFile;ErrGet;GetLoginUserName;";
    const std::string set3 = "OuAlloc;" + may + "3;OuGet 3;OuJsonToStruct;OuSet;", end3 = "GpoNotifyFetch 1000 2 3;";
    const auto create = [&](const std::string& parent, const std::string& id) {
        return "OuJsonToStruct;" + may + parent + ";OuCreate;OuItemGetID;DelegateOverrideListByTarget 2 " + id + ";";
    };
    const struct {
        Handler handler;
        const char *szParams, *szResult;
        std::string log;    // empty: none
        std::string calls;  // after "SetError 117"
    } cases[] = {
        {delete_v1, "{}", "error 101", "", "SetError 101"},
        {delete_v1, "{'node_id':[]}", "ok null", "", "SetSuccess"},
        {delete_v1, "{'node_id':3}", "ok null", "", delete3 + "SetSuccess"},
        {delete_v1, "{'node_id':[3,0,4]}", "error 101", rootLine, delete3 + "SetError 101"},
        {delete_v1, "{'node_id':null}", "error 101", rootLine, "SetError 101"},
        {delete_v1, "{'node_id':[3,7,4]}", "error 414", refused, delete3 + refuse7},
        {delete_v1, "{'node_id':-5}", "ok null", "", may + "-5;OuDeleteAllByID -5;SetSuccess"},
        {delete_v1, "{'node_id':'3'}", "error 101", bad, "SetError 101"},
        {delete_v1, "{'node_id':18446744073709551615}", "error 101", bad, "SetError 101"},
        {delete_v1, "{'node_id':{'id':3}}", "error 101", bad, "SetError 101"},
        {delete_v1, "{'node_id':[3,[4]]}", "error 101", bad, delete3 + "SetError 101"},

        {create_v1, "{'multiple_data':[]}", "ok {'ids':[]}", "", "SetSuccess"},
        {create_v1, "{'multiple_data':{}}", "error 117", notArray, ""},
        {create_v1, "{'node_id':1,'name':'x','parent_id':0}", "error 117", noRecord, ""},
        {create_v1, "{'id':1,'parent_id':0}", "error 117", noRecord, ""},
        {create_v1, "{'id':1,'name':'x'}", "error 117", noRecord, ""},
        {create_v1, "{'id':1,'name':'x','parent_id':3}", "ok {'ids':100}", "", create("3", "100") + "SetSuccess"},
        {create_v1, "{'multiple_data':[{'parent_id':3},{'parent_id':4}],'id':0}", "ok {'ids':[100,101]}", "",
         create("3", "100") + create("4", "101") + "SetSuccess"},
        {create_v1, "{'multiple_data':[{'parent_id':3},{'parent_id':7},{'parent_id':4}]}", "error 414", refused,
         create("3", "100") + "OuJsonToStruct;" + refuse7},
        {create_v1, "{'multiple_data':[null]}", "error 117", noStruct, ""},
        {create_v1, "{'multiple_data':[[]]}", "error 117", noStruct, ""},

        {set_v1, "{'multiple_data':[]}", "ok null", "", "OuAlloc;SetSuccess;OuFree"},
        {set_v1, "{'multiple_data':{}}", "error 101", "", "SetError 101"},
        {set_v1, "{'node_id':3,'name':'x'}", "ok null", "", set3 + end3 + "SetSuccess;OuFree"},
        {set_v1, "{'multiple_data':[{'id':3,'delegate':[{'ugid':5}]},{'id':7},{'id':4}]}", "error 414", refused,
         set3 + "DelegateSetListByTarget 2 3;" + end3 + refuse7 + "OuFree"},
        {set_v1, "{'multiple_data':[{'name':'x'}]}", "error 117", noId, "OuAlloc;OuFree"},
        {set_v1, "{'multiple_data':['x']}", "error 117", noId, "OuAlloc;OuFree"},
        {set_v1, "{'multiple_data':[{'id':'3'}]}", "error 101", bad, "OuAlloc;SetError 101;OuFree"},
        {set_v1, "{'node_id':1e300}", "error 101", bad, "OuAlloc;SetError 101;OuFree"},
    };
    for (const auto& c : cases) {
        groups();
        EXPECT_EQ(call(c.handler, json(c.szParams)), c.szResult) << c.szParams;
        EXPECT_EQ(platform.logs, c.log.empty() ? Lines() : Lines{c.log}) << c.szParams;
        EXPECT_EQ(storeCalls(), split("SetError 117;" + c.calls)) << c.szParams;
    }
}

TEST(GroupHandlers, surviveARecordThatTheStoreSpoils)
{
    groups();
    platform.onJsonToStruct = [](Json::Value& jRecord) { jRecord = "spoiled"; };
    EXPECT_EQ(call(create_v1, json("{'multiple_data':[{}]}")), "error 117");
    EXPECT_EQ(platform.logs, Lines{failedCall(jsonToStructText, 0)});
    for (const char* szSpoiled : {"{'id':'spoiled','delegate':[]}", "{'delegate':[]}"}) {
        groups();
        platform.onJsonToStruct = [=](Json::Value& jRecord) { jRecord = json(szSpoiled); };
        EXPECT_EQ(call(set_v1, json("{'multiple_data':[{'id':3,'delegate':[]}]}")), "error 101");
        EXPECT_EQ(platform.logs, Lines{badParameter(0)});
    }
}

TEST(GroupRequest, copiesTheParametersThatItKnows)
{
    const struct {
        int isCreate;
        const char* szParams;
        const char* szRecord;
    } cases[] = {
        {0, "{}", "{'id':null,'name':null,'parent_id':null}"},
        {2, "{'desc':[1],'id':9,'other':1}", "{'id':null,'name':null,'parent_id':null,'desc':[1]}"},
        {1, "{'id':0,'name':'n','parent_id':3}", "{'id':null,'name':'n','parent_id':3}"},
        {1,
         "{'id':0,'node_id':'5','name':1,'parent_id':{},'mtime':2,'block_inheritance':true,'linked_gpo':[4],"
         "'extra_info':{'a':1},'delegate':null,'desc':''}",
         "{'id':'5','name':1,'parent_id':{},'mtime':2,'block_inheritance':true,'linked_gpo':[4],'extra_info':{'a':1},"
         "'delegate':null,'desc':''}"},
    };
    for (const auto& c : cases) {
        reset();
        VELQ::APIRequest request(1000, "bob", json(c.szParams));
        EXPECT_EQ(VELQZEMOuHttpReqToJson(&request, c.isCreate), json(c.szRecord));
        EXPECT_TRUE(platform.logs.empty());
    }
    EXPECT_TRUE(VELQZEMOuHttpReqToJson(nullptr, 0).isNull());
    EXPECT_EQ(platform.logs, Lines{"3 webapi_zem_ou.cpp:L Invaild Argument (__null != req)=[0]\n"});
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_STREQ(VLIBCErrorGetFile(), "webapi_zem_ou.cpp");
    EXPECT_GT(VLIBCErrorGetLine(), 0);
}

TEST(OneLevelList, handsTheQueryOnAsTextAndAnswersThePage)
{
    reset();
    platform.listedGroups = json("[{'id':2},{'id':1}]");
    EXPECT_EQ(call(list_one_level_v1, json("{'offset':'5','limit':2,'sort_by':null,'sort_direction':true,'ugid':7.5,"
                                           "'user_type':8,'other':[]}")),
              "ok {'count':2,'objects':[{'id':2},{'id':1}],'offset':'5','total':0}");
    EXPECT_EQ(platform.hash, (std::map<std::string, std::string>{{"offset", "5"},
                                                                 {"limit", "2"},
                                                                 {"sort_by", ""},
                                                                 {"sort_direction", "true"},
                                                                 {"ugid", "7.5"},
                                                                 {"user_type", "8"}}));
    EXPECT_EQ(storeCalls(), (Lines{"HashAlloc 512", "HashSetValue offset", "HashSetValue limit", "HashSetValue sort_by",
                                   "HashSetValue sort_direction", "HashSetValue ugid", "HashSetValue user_type",
                                   "ListOneLevelByUidHash", "OuStructToJson", "OuStructToJson", "SetSuccess",
                                   "OuListFree", "HashFree"}));
    reset();
    EXPECT_EQ(call(list_one_level_v1, Json::Value(Json::objectValue)),
              "ok {'count':0,'objects':[],'offset':null,'total':0}");
    EXPECT_EQ(storeCalls(), (Lines{"HashAlloc 512", "ListOneLevelByUidHash", "SetSuccess", "HashFree"}));
    reset();
    for (const char* szParams : {"{'ugid':{}}", "{'ugid':'1\\u0000'}"}) {
        reset();
        EXPECT_EQ(call(list_one_level_v1, json(szParams)), "error 500");
        EXPECT_EQ(storeCalls(), (Lines{"HashAlloc 512", "SetError 117", "SetError 500", "HashFree"}));
    }
}

TEST(GroupHandlers, surviveEveryFailureOfThePlatform)
{
    const auto refused = [](int) {
        const std::string call = *std::find_if(platform.calls.rbegin(), platform.calls.rend(), [](const auto& name) {
            return name.rfind("OuCanManagedByUid", 0) == 0;
        });
        return Lines{noPermission + call.substr(call.rfind(' ') + 1) + storeReason};
    };
    const struct {
        Handler handler;
        const char* szParams;
        std::map<std::string, Outcome> expected;
    } scenarios[] = {
        {delete_v1,
         "{'node_id':[3,4]}",
         {{"OuCanManagedByUid", {"error 414", refused}},
          {"OuDeleteAllByID", {"error 117", failedCalls({"0 > VELQZEMOuDeleteAllByID(tmpID)"})}}}},
        {create_v1,
         "{'multiple_data':[{'parent_id':3}]}",
         {{"OuItemGetID", {"ok {'ids':[0]}", noLines()}},  // its result is not looked at
          {"OuJsonToStruct", {"error 117", failedCalls({jsonToStructText})}},
          {"OuCanManagedByUid", {"error 414", refused}},
          {"OuCreate", {"error 117", failedCalls({"0 > VELQZEMOuCreate(&ou)"})}},
          {"DelegateOverrideListByTarget", {"error 117", failedCalls({overrideText})}}}},
        {create_v1,
         "{'id':1,'name':'x','parent_id':0,'linked_gpo':[]}",
         {{"HttpReqToJsonForLinkedGpo", {"", noLines()}},
          {"OuJsonToStruct", {"error 117", failedCalls({jsonToStructText})}},
          {"OuCanManagedByUid", {"error 414", refused}},
          {"OuCreate", {"error 117", failedCalls({"0 > VELQZEMOuCreate(&ou)"})}},
          {"OuItemGetID", {"ok {'ids':0}", noLines()}},
          {"DelegateOverrideListByTarget", {"error 117", failedCalls({overrideText})}}}},
        {set_v1,
         "{'multiple_data':[{'id':3,'delegate':[]},{'id':4}]}",
         {{"OuAlloc", {"error 117", failedCalls({"NULL == (pOu = VELQZEMOuAlloc())"})}},
          {"OuCanManagedByUid", {"error 414", refused}},
          {"OuGet", {"error 117", failedCalls({"0 > VELQZEMOuGet(tmpID, pOu)"})}},
          {"OuJsonToStruct", {"error 117", failedCalls({"0 > VELQZEMOuJsonToStruct(multiple_data[i], pOu)"})}},
          {"OuSet", {"error 117", failedCalls({"0 > VELQZEMOuSet(pOu)"})}},
          {"DelegateSetListByTarget", {"error 117", failedCalls({setListText})}},
          {"GpoNotifyFetch",
           {"",
            [](int) {
                return Lines{"3 webapi_zem_ou.cpp:L fail to VELQZEMGpoNotifyFetch uid=1000 id=" +
                             std::string(platform.fallible.size() > 7 && platform.failFirst < 8 ? "3" : "4")};
            }}}}},
        {list_one_level_v1,
         "{'offset':0,'ugid':1}",
         {{"HashAlloc", {"error 500", mallocHash}},
          {"HashSetValue", {"error 500", noLines()}},
          {"ListOneLevelByUidHash",
           {"error 500", deniedAccess("0 > VELQZEMListOneLevelByUidHash(pHash, &pHead, NULL, NULL)")}},
          {"OuStructToJson", {"error 500", noLines()}}}},
    };
    for (const auto& scenario : scenarios) {
        SCOPED_TRACE(scenario.szParams);
        const auto prepare = [&] {
            groups();
            platform.listedGroups = json("[{'id':2},{'id':1}]");
        };
        sweep(
            prepare, [&] { return call(scenario.handler, json(scenario.szParams)); }, scenario.expected);
    }
}

}  // namespace
