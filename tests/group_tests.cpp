// Tests group create, set and delete, the request conversion, and the one-level listing.
#include <array>
#include <cerrno>

#include <gtest/gtest.h>

#include "platform/velq_core.h"
#include "tests/sweep.h"

using namespace fake;
using namespace test;

namespace {

const std::string storeReason = "]. [0x0D01 store.cpp:77]";
const std::string refused = "No permission for normal user [bob] on group [$" + storeReason;
const std::string rootLine = "Deleting ROOT OU is not allowed.";
const std::string jsonToStruct = "Failed [0 > VELQZEMOuJsonToStruct(multiple_data[i], &ou)]";
const std::string refusedRecord = withErrno(jsonToStruct, EINVAL);
const std::string noId = "Failed [false == multiple_data[i].isMember(\"id\")]";

void prepareGroups()
{
    reset();
    for (const int id : {0, 3, 4, 7}) {
        platform.groups[id] = json("{'name':'g','parent_id':0,'id':%}", id);
    }
    platform.refused = {7};
    platform.listedGroups = json("[{'id':2},{'id':1}]");
}

TEST(GroupHandlers, answerEachRequestAndRefusalAsDocumented)
{
    const std::string bad = "bad parameter", notArray = "Failed [false == jTmp.isArray()]";
    const std::string noRecord = "Failed [true == jTmp.isNull()]";
    const std::string no7 = "No permission for normal user [bob] on group [7" + storeReason;
    const std::string may = "OuCanManagedByUid 1000 ", delete3 = may + "3;OuDeleteAllByID 3;";
    const std::string refuse7 = may + "7;SetError 414;ErrorGetLine;ErrorGetFile;ErrGet;GetLoginUserName";
    const std::string set3 = "OuAlloc;" + may + "3;OuGet 3;OuJsonToStruct;OuSet;", notify3 = "GpoNotifyFetch 1000 2 3;";
    const auto create = [&](const std::string& parent, const std::string& id) {
        return "OuJsonToStruct;" + may + parent + ";OuCreate;OuItemGetID;DelegateOverrideListByTarget 2 " + id + ";";
    };
    // The case, the method and its parameters, the answer, the log line, the calls after "SetError 117".
    const std::tuple<const char*, const char*, const char*, const char*, std::string, std::string> cases[] = {
        {"a missing identifier is refused", "delete", "{}", "error 101", "", "SetError 101"},
        {"an empty array deletes nothing", "delete", "{'node_id':[]}", "ok null", "", "SetSuccess"},
        {"one group is deleted", "delete", "{'node_id':3}", "ok null", "", delete3 + "SetSuccess"},
        {"the root ends the request", "delete", "{'node_id':[3,0,4]}", "error 101", rootLine, delete3 + "SetError 101"},
        {"null counts as the root", "delete", "{'node_id':null}", "error 101", rootLine, "SetError 101"},
        {"a refused group ends it", "delete", "{'node_id':[3,7,4]}", "error 414", no7, delete3 + refuse7},
        {"negative is accepted", "delete", "{'node_id':-5}", "ok null", "", may + "-5;OuDeleteAllByID -5;SetSuccess"},
        {"a text is refused", "delete", "{'node_id':'3'}", "error 101", bad, "SetError 101"},
        {"too large is refused", "delete", "{'node_id':18446744073709551615}", "error 101", bad, "SetError 101"},
        {"an object is refused", "delete", "{'node_id':{'id':3}}", "error 101", bad, "SetError 101"},
        {"an inner array is refused", "delete", "{'node_id':[3,[4]]}", "error 101", bad, delete3 + "SetError 101"},

        {"an empty array creates nothing", "create", "{'multiple_data':[]}", "ok {'ids':[]}", "", "SetSuccess"},
        {"an object as multiple_data fails", "create", "{'multiple_data':{}}", "error 117", notArray, ""},
        {"a missing id fails", "create", "{'node_id':1,'name':'x','parent_id':0}", "error 117", noRecord, ""},
        {"a missing name fails", "create", "{'id':1,'parent_id':0}", "error 117", noRecord, ""},
        {"a missing parent fails", "create", "{'id':1,'name':'x'}", "error 117", noRecord, ""},
        {"one group answers its identifier", "create", "{'id':1,'name':'x','parent_id':3}", "ok {'ids':100}", "",
         create("3", "100") + "SetSuccess"},
        {"several answer an array", "create", "{'multiple_data':[{'parent_id':3},{}],'id':0}", "ok {'ids':[100,101]}",
         "", create("3", "100") + create("0", "101") + "SetSuccess"},
        {"a refused parent ends the request", "create", "{'multiple_data':[{'parent_id':3},{'parent_id':7},{}]}",
         "error 414", no7, create("3", "100") + "OuJsonToStruct;" + refuse7},
        {"a null record fails", "create", "{'multiple_data':[null]}", "error 117", refusedRecord, "OuJsonToStruct"},
        {"an array as record fails", "create", "{'multiple_data':[[]]}", "error 117", refusedRecord, "OuJsonToStruct"},

        {"an empty array changes nothing", "set", "{'multiple_data':[]}", "ok null", "", "OuAlloc;SetSuccess;OuFree"},
        {"an object as multiple_data is refused", "set", "{'multiple_data':{}}", "error 101", "", "SetError 101"},
        {"one is changed", "set", "{'node_id':3,'name':'x'}", "ok null", "", set3 + notify3 + "SetSuccess;OuFree"},
        {"a refused group ends it", "set", "{'multiple_data':[{'id':3,'delegate':[{'ugid':5}]},{'id':7},{}]}",
         "error 414", no7, set3 + "DelegateSetListByTarget 2 3;" + notify3 + refuse7 + ";OuFree"},
        {"a missing id fails", "set", "{'multiple_data':[{'name':'x'}]}", "error 117", noId, "OuAlloc;OuFree"},
        {"a text as record fails", "set", "{'multiple_data':['x']}", "error 117", noId, "OuAlloc;OuFree"},
        {"a textual id fails", "set", "{'multiple_data':[{'id':'3'}]}", "error 101", bad,
         "OuAlloc;SetError 101;OuFree"},
        {"too large is refused", "set", "{'node_id':1e300}", "error 101", bad, "OuAlloc;SetError 101;OuFree"},
    };
    for (const auto& [szCase, szMethod, szParams, szResult, log, calls] : cases) {
        SCOPED_TRACE(std::string(szMethod) + ": " + szCase);
        prepareGroups();
        EXPECT_EQ(call(std::string("KXGroup ") + szMethod, json(szParams)), szResult);
        EXPECT_EQ(platform.logs, split(log));
        EXPECT_EQ(platform.calls, split("GetLoginUID;SetError 117;" + calls));
    }
}

TEST(GroupHandlers, surviveAConversionThatChangesTheRecord)
{
    const char* const szRecords = "{'multiple_data':[{'id':3,'delegate':[]}]}";
    const char* const szLinks = "{'id':0,'node_id':3,'name':'x','parent_id':3,'linked_gpo':[],'delegate':[]}";
    const std::tuple<const char*, const char*, const char*, const char*, std::string> cases[] = {
        {"KXGroup create", szRecords, "'spoiled'", "error 117", "bad parameter"},
        {"KXGroup create", szRecords, "null", "ok {'ids':[100]}", ""},
        {"KXGroup create", szLinks, "'spoiled'", "error 117", refusedRecord},
        {"KXGroup create", szLinks, "null", "ok {'ids':100}", ""},
        {"KXGroup set", szLinks, "[]", "error 117", noId},
        {"KXGroup set", szRecords, "{'id':'spoiled','delegate':[]}", "error 101", "bad parameter"},
        {"KXGroup set", szRecords, "{'delegate':[]}", "error 101", "bad parameter"}};
    for (const auto& [szMethod, szParams, szSpoiled, szResult, log] : cases) {
        prepareGroups();
        platform.onConversion = [jSpoiled = json(szSpoiled)](Json::Value& jRecord) { jRecord = jSpoiled; };
        EXPECT_EQ(call(szMethod, json(szParams)), szResult) << szSpoiled;
        EXPECT_EQ(platform.logs, split(log)) << szSpoiled;
    }
}

TEST(GroupRequest, copiesKnownParameters)
{
    const std::tuple<int, const char*, const char*> cases[] = {
        {0, "{}", "{'id':null,'name':null,'parent_id':null}"},
        {2, "{'desc':[1],'id':9,'other':1}", "{'id':null,'name':null,'parent_id':null,'desc':[1]}"},
        {1, "{'id':0,'name':'n','parent_id':3}", "{'id':null,'name':'n','parent_id':3}"},
        {1,
         "{'id':0,'node_id':'5','name':1,'parent_id':{},'mtime':2,'block_inheritance':true,'linked_gpo':[4],"
         "'extra_info':{'a':1},'delegate':null,'desc':''}",
         "{'id':'5','name':1,'parent_id':{},'mtime':2,'block_inheritance':true,'linked_gpo':{'order':[4]},"
         "'extra_info':{'a':1},'delegate':null,'desc':''}"},
    };
    reset();
    for (const auto& [isCreate, szParams, szRecord] : cases) {
        VELQ::APIRequest request(1000, "bob", json(szParams));
        EXPECT_EQ(VELQZEMOuHttpReqToJson(&request, isCreate), json(szRecord));
    }
    EXPECT_TRUE(VELQZEMOuHttpReqToJson(nullptr, 0).isNull());
    EXPECT_EQ(platform.logs, Lines{"Invaild Argument (__null != req)=[0]\n"});
    EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    EXPECT_STREQ(VLIBCErrorGetFile(), "webapi_zem_ou.cpp");
    EXPECT_GT(VLIBCErrorGetLine(), 0);
}

TEST(OneLevelList, passesTheQueryAsTextAndAnswersThePage)
{
    const std::array<std::string, 4> cases[] = {
        {"{'offset':5,'limit':2,'sort_by':null,'sort_direction':true,'ugid':7.5,'user_type':8,'other':[]}",
         "[{'id':2},{'id':1}]", "ok {'count':2,'objects':[{'id':2},{'id':1}],'offset':5,'total':0}",
         "HashSetValue offset 5;HashSetValue limit 2;HashSetValue sort_by;HashSetValue sort_direction "
         "true;HashSetValue "
         "ugid 7.5;HashSetValue user_type 8;ListOneLevelByUidHash;OuStructToJson;OuStructToJson;SetSuccess;OuListFree"},
        {"{}", "[]", "ok {'count':0,'objects':[],'offset':null,'total':0}", "ListOneLevelByUidHash;SetSuccess"},
        {"{'ugid':{}}", "[]", "error 500", "SetError 117;SetError 500"},
        {"{'offset':'1\\u0000x'}", "[]", "ok {'count':0,'objects':[],'offset':'1\\u0000x','total':0}",
         "HashSetValue offset 1;ListOneLevelByUidHash;SetSuccess"},
    };
    for (const auto& [params, groups, result, calls] : cases) {
        reset();
        platform.listedGroups = json(groups);
        EXPECT_EQ(call(list_one_level_v1, json(params)), result);
        EXPECT_EQ(platform.calls, split("HashAlloc 512;" + calls + ";HashFree")) << params;
    }
}

TEST(GroupHandlers, surviveEveryFailureOfThePlatform)
{
    const auto failed = [](const std::string& expr) { return Outcome{"error 117", "Failed [" + expr + "]"}; };
    const std::string delegates = "ListByTarget((long)multiple_data[i][\"id\"].asInt64(), VELQ_ZEM_TYPE_OU, ";
    const Outcomes creating = {
        {"HttpReqToJsonForLinkedGpo", {}},  // ignored: the record's conversion fails instead
        {"OuJsonToStruct", {"error 117", jsonToStruct}},
        {"OuCanManagedByUid", {"error 414", refused}},
        {"OuCreate", failed("0 > VELQZEMOuCreate(&ou)")},
        {"OuItemGetID", {"ok {'ids':0}", ""}},  // ignored
        {"DelegateOverrideListByTarget", failed("0 > VELQZEMDelegateOverride" + delegates + "(multiple_data[i]))")},
    };
    Outcomes creatingSeveral = creating;
    creatingSeveral["OuItemGetID"].result = "ok {'ids':[0]}";
    const std::tuple<Handler, const char*, Outcomes> scenarios[] = {
        {handlerOf("KXGroup delete"),
         "{'node_id':[3,4]}",
         {{"OuCanManagedByUid", {"error 414", refused}},
          {"OuDeleteAllByID", failed("0 > VELQZEMOuDeleteAllByID(tmpID)")}}},
        {handlerOf("KXGroup create"), "{'multiple_data':[{'parent_id':3}]}", creatingSeveral},
        {handlerOf("KXGroup create"), "{'id':1,'name':'x','parent_id':0,'linked_gpo':[]}", creating},
        {handlerOf("KXGroup set"),
         "{'multiple_data':[{'id':3,'delegate':[]},{'id':4}]}",
         {{"OuAlloc", failed("NULL == (pOu = VELQZEMOuAlloc())")},
          {"OuCanManagedByUid", {"error 414", refused}},
          {"OuGet", failed("0 > VELQZEMOuGet(tmpID, pOu)")},
          {"OuJsonToStruct", failed("0 > VELQZEMOuJsonToStruct(multiple_data[i], pOu)")},
          {"OuSet", failed("0 > VELQZEMOuSet(pOu)")},
          {"DelegateSetListByTarget", failed("0 > VELQZEMDelegateSet" + delegates + "(multiple_data[i]))")},
          {"GpoNotifyFetch", {"", "fail to VELQZEMGpoNotifyFetch uid=1000 id=$"}}}},
        {list_one_level_v1,
         "{'offset':0,'ugid':1}",
         {{"HashAlloc", {"error 500", "denied: Fail EACESS;malloc hash failed"}},
          {"HashSetValue", {"error 500", ""}},
          {"ListOneLevelByUidHash",
           {"error 500", "denied: Failed [0 > VELQZEMListOneLevelByUidHash(pHash, &pHead, NULL, NULL)]"}},
          {"OuStructToJson", {"error 500", ""}}}},
    };
    for (const auto& [handler, szParams, outcomes] : scenarios) {
        SCOPED_TRACE(szParams);
        sweep(
            prepareGroups, [run = handler, jParams = json(szParams)] { return call(run, jParams); }, outcomes);
    }
}

}  // namespace
