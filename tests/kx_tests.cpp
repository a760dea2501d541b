// Tests the handler of kx/.
#include <cerrno>

#include <gtest/gtest.h>

#include "kx/server_set.h"
#include "tests/sweep.h"

using namespace fake;
using namespace test;

namespace {

const std::string reason = "]. [0x0D01 store.cpp:77]";

// The caller may not manage group 7 and the root group. Servers 9 and 11 are in group 3, server 10 in group 7.
void prepareServers()
{
    reset();
    platform.servers = {
        {9, json("{'parent_id':3,'sid':'S'}")}, {10, json("{'parent_id':7}")}, {11, json("{'parent_id':3}")}};
    platform.refused = {0, 7};
}

TEST(ServerSet, answersEachRequestAndRefusalAsDocumented)
{
    const std::string no0 = "No permission for normal user [bob] on group [0" + reason;
    const std::string missing = "Failed [0 > VELQZEMKxGet(serverId, pKx)] (2);" + no0;
    const std::string noId = "Failed [false == multiple_data[i].isMember(\"id\")]", bad = "bad parameter";
    // The case, the parameters, the answer, the servers whose notices follow, server 9 afterwards, the log lines.
    const std::tuple<const char*, const char*, const char*, const char*, const char*, std::string> cases[] = {
        {"one is changed", "{'node_id':9,'name':'x','address':'a','sid':'T','revision':1}", "ok null", "9 ",
         "{'parent_id':3,'sid':'S','id':9,'name':'x','address':'a'}", ""},
        {"several get the same", "{'node_id':[9,11],'parent_id':4,'linked_gpo':[{'id':8}]}", "ok null", "9 11 ",
         "{'parent_id':4,'sid':'S','id':9,'linked_gpo':{'order':[{'id':8}]}}", ""},
        {"each gets its own", "{'multiple_data':[{'id':9,'revision':2,'sid':'T'},{'id':11}],'node_id':10}", "ok null",
         "9 11 ", "{'parent_id':3,'sid':'S','id':9,'revision':2}", ""},
        {"an empty array changes nothing", "{'node_id':[]}", "ok null", "", "{'parent_id':3,'sid':'S'}", ""},
        {"a server in another's group ends it", "{'node_id':[9,10,11]}", "error 414", "9 ",
         "{'parent_id':3,'sid':'S','id':9}", no0},
        {"a missing server is refused in the same way", "{'node_id':12}", "error 414", "", "{'parent_id':3,'sid':'S'}",
         missing},
        {"a missing identifier is refused", "{'name':'x'}", "error 101", "", "{'parent_id':3,'sid':'S'}", ""},
        {"a textual one is refused", "{'node_id':'9'}", "error 101", "", "{'parent_id':3,'sid':'S'}", bad},
        {"an inner array is refused", "{'node_id':[[9]]}", "error 101", "", "{'parent_id':3,'sid':'S'}", bad},
        {"an object as multiple_data is refused", "{'multiple_data':{}}", "error 101", "", "{'parent_id':3,'sid':'S'}",
         ""},
        {"a record without id fails", "{'multiple_data':[{'name':'x'}]}", "error 117", "", "{'parent_id':3,'sid':'S'}",
         noId},
        {"a null record fails", "{'multiple_data':[null]}", "error 117", "", "{'parent_id':3,'sid':'S'}", noId},
    };
    for (const auto& [szCase, szParams, szAnswer, szNotices, szServer, log] : cases) {
        SCOPED_TRACE(szCase);
        prepareServers();
        EXPECT_EQ(call(set_servers_v1, json(szParams)), szAnswer);
        EXPECT_EQ(platform.servers[9], json(szServer));
        EXPECT_EQ(platform.logs, split(log));
        std::string notices;
        for (const std::string& made : platform.calls) {
            notices += made.starts_with("GpoNotifyFetch 1000 3 ") ? made.substr(22) + " " : "";
        }
        EXPECT_EQ(notices, szNotices);
    }
    prepareServers();
    platform.onConversion = [](Json::Value& jRecord) { jRecord = "spoiled"; };
    EXPECT_EQ(call(set_servers_v1, json("{'node_id':9,'linked_gpo':[]}")), "error 117");
}

TEST(ServerSet, survivesEveryFailureOfThePlatform)
{
    const auto failed = [](const std::string& check) { return Outcome{"error 117", "Failed [" + check + "]", {}}; };
    Outcomes outcomes = {
        {"KxAlloc", failed("NULL == (pKx = VELQZEMKxAlloc())")},
        {"KxStructToJson", failed("0 > VELQZEMKxStructToJson(pKx, jSearchArray, jKx)")},
        {"HttpReqToJsonForLinkedGpo", {}},
        {"KxGet", failed("0 > VELQZEMKxGet(serverId, pKx)")},
        {"OuCanManagedByUid", {}},  // permission on the root group is enough
        {"KxJsonToStruct", failed("0 > VELQZEMKxJsonToStruct(multiple_data[i], pKx)")},
        {"KxSet", failed("0 > VELQZEMKxSet(pKx)")},
        {"GpoNotifyFetch", {"", "fail to VELQZEMGpoNotifyFetch uid=1000 id=$"}},
    };
    // The first time, a server that does not exist counts as in the root group.
    outcomes["KxGet 9#2"] = outcomes["KxGet"];
    outcomes["KxGet 9"] = outcomes["KxGet"];
    outcomes["KxGet 9"].resultByErrno = {{ENOENT, "ok null"}};
    const auto prepare = [] {
        prepareServers();
        platform.refused = {};
    };
    sweep(
        prepare, [] { return call(set_servers_v1, json("{'node_id':[9],'name':'x','linked_gpo':[]}")); }, outcomes);
}

}  // namespace
