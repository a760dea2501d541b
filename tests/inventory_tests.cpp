// Tests how the import merges an Ansible inventory into a stored fleet.
#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "host/cli/ansible_inventory.h"
#include "tests/support.h"

using namespace test;
using host::importInventory;

namespace {

constexpr int64_t kLastGroup = 20;

// A fleet with the groups a/b (1, 2) and c (3), the servers s (1) in b, t (2) in c, and two servers u (3 in a, 4 in c).
const Json::Value kStored = json(
    "{'accounts':[{'uid':1,'name':'x','admin':true}],"
    "'groups':[{'id':0,'parent_id':0,'name':'root'},{'id':1,'parent_id':0,'name':'a','desc':'kept'},"
    "{'id':2,'parent_id':1,'name':'b'},{'id':3,'parent_id':0,'name':'c'}],"
    "'servers':[{'id':1,'parent_id':2,'name':'s','address':'192.0.2.1','linked_gpo':{'order':[{'id':5}]}},"
    "{'id':2,'parent_id':3,'name':'t'},{'id':3,'parent_id':1,'name':'u'},{'id':4,'parent_id':3,'name':'u'}]}");

// Returns the fleet with the records of the import.
Json::Value merged(Json::Value jFleet, const host::Import& import)
{
    for (const char* szSection : {"groups", "servers"}) {
        for (const Json::Value& jRecord : import.jFleet[szSection]) {
            Json::Value& jSection = jFleet[szSection];
            const auto isSame = [&](const Json::Value& jOther) { return jOther["id"] == jRecord["id"]; };
            const auto found = std::find_if(jSection.begin(), jSection.end(), isSame);
            if (found == jSection.end()) {
                jSection.append(jRecord);
            } else {
                *found = jRecord;
            }
        }
    }
    return jFleet;
}

std::string pathOf(const Json::Value& jFleet, int64_t id)
{
    for (const Json::Value& jGroup : jFleet["groups"]) {
        if (id != 0 && jGroup["id"] == Json::Int64{id}) {
            return pathOf(jFleet, jGroup["parent_id"].asInt64()) + "/" + jGroup["name"].asString();
        }
    }
    EXPECT_EQ(id, 0) << "no such group";
    return "";
}

// Returns the records of an import as a text: "21 /a/d; " for a group, "5 s in /a/d at ADDRESS; " for a server.
std::string recordsOf(const host::Import& import, const Json::Value& jStored = kStored)
{
    const Json::Value jFleet = merged(jStored, import);
    EXPECT_TRUE(import.jFleet.isObject());
    std::string text;
    for (const Json::Value& jGroup : import.jFleet["groups"]) {
        text += jGroup["id"].asString() + " " + pathOf(jFleet, jGroup["id"].asInt64()) + "; ";
    }
    for (const Json::Value& jServer : import.jFleet["servers"]) {
        text += jServer["id"].asString() + " " + jServer["name"].asString() + " in " +
                pathOf(jFleet, jServer["parent_id"].asInt64()) + " at " + jServer["address"].asString() + "; ";
    }
    return text;
}

std::string notesOf(const host::Import& import)
{
    std::string text;
    for (const std::string& note : import.notes) {
        text += note + "; ";
    }
    return text;
}

TEST(Inventory, isMatchedWithTheStoreAndTheRestIsCreated)
{
    // What is expected, the inventory, the records of the import, and its notes but for the last.
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"equal records stay", "{'all':{'children':['a','c']},'a':{'children':['b']},'b':{'hosts':['s']}}", "", ""},
        {"a group is matched by its path", "{'all':{'children':['b']},'b':{'hosts':['s']}}",
         "21 /b; 1 s in /b at 192.0.2.1; ", ""},
        {"a new host without an address gets none", "{'a':{'children':['d']},'d':{'hosts':['n']}}",
         "21 /a/d; 5 n in /a/d at ; ", ""},
        {"an address is imported", "{'c':['t'],'_meta':{'hostvars':{'t':{'ansible_host':'::1'}}}}",
         "2 t in /c at ::1; ", ""},
        {"an address that is not a text is left out",
         "{'b':['t'],'a':{'children':['b']},'_meta':{'hostvars':{'t':{'ansible_host':5}}}}", "2 t in /a/b at ; ",
         "host \"t\": its ansible_host is not a text and left out; "},
        {"a template is left out", "{'c':['t'],'_meta':{'hostvars':{'t':{'ansible_host':'{{ x }}'}}}}", "",
         "host \"t\": its ansible_host is a template and left out; "},
        {"a null address keeps the stored one",
         "{'a':{'children':['b']},'b':['s'],'_meta':{'hostvars':{'s':{'ansible_host':null}}}}", "", ""},
        {"hosts of all and ungrouped are in the root",
         "{'all':{'hosts':['t'],'children':['ungrouped']},'ungrouped':{'hosts':"
         "['n','n'],'children':['a']},'a':{}}",
         "2 t in  at ; 5 n in  at ; ", ""},
        {"a host of all and c is in c", "{'all':{'hosts':['s','t']},'c':['t'],'a':{'children':['b']},'b':['s']}", "",
         ""},
        {"a host of several groups is in the deepest", "{'c':['s'],'a':{'children':['b']},'b':{'hosts':['s']}}", "",
         "host \"s\" is in several groups and stands in \"a/b\"; "},
        {"a host of two groups of one depth is in the first", "{'all':{'children':['c','a']},'a':['t'],'c':['t']}", "",
         "host \"t\" is in several groups and stands in \"c\"; "},
        {"a group with several parents is under the first",
         "{'all':{'children':['c','a']},'a':{'children':['b']},'c':{'children':['b']}}", "21 /c/b; ",
         "group \"b\" has several parents and stands under \"c\"; "},
        {"a group under a group and its parent is under the parent that is met first",
         "{'all':{'children':['a']},'a':{'children':['b','d']},'b':{'children':['d']}}", "21 /a/d; ",
         "group \"d\" has several parents and stands under \"a\"; "},
        {"a child of all and another group is under the other group",
         "{'all':{'children':['b','a','c','ungrouped']},'a':{'children':['b']}}", "", ""},
        {"a host with variables only is left out", "{'a':[],'_meta':{'hostvars':{'n':{}}}}", "",
         "host \"n\" is in no group and left out; "},
        {"an empty group is created", "{'all':{'children':['d']}}", "21 /d; ", ""},
        {"groups may have hosts' names", "{'s':['c','s']}", "21 /s; 5 c in /s at ; 1 s in /s at 192.0.2.1; ", ""},
        {"a name may hold any characters", "{\"a/b\":[\"\\\"\\n\"]}", "21 /a/b; 5 \"\n in /a/b at ; ", ""},
        {"of several servers of a name, the one in the host's group is matched", "{'c':['u']}", "",
         "host \"u\": of the servers 3, 4 of that name it is 4, which stands in its group; "},
        {"an empty inventory changes nothing", "{}", "", ""},
    };
    for (const auto& [szExpectation, szInventory, szRecords, szNotes] : cases) {
        SCOPED_TRACE(szExpectation);
        host::Import import = importInventory(json(szInventory), kStored, kLastGroup);
        EXPECT_EQ(recordsOf(import), szRecords);
        const auto isOfOthers = [](const std::string& note) {
            return note.find(" not in the inventory and stay") != note.npos;
        };
        EXPECT_GT(std::erase_if(import.notes, isOfOthers), 0u);
        EXPECT_EQ(notesOf(import), szNotes);
        const host::Import again = importInventory(json(szInventory), merged(kStored, import), kLastGroup + 1);
        EXPECT_EQ(recordsOf(again), "") << "the second time";
    }
}

TEST(Inventory, keepsMembersThatItDoesNotHave)
{
    const host::Import import = importInventory(
        json("{'c':['s'],'_meta':{'hostvars':{'s':{'ansible_host':'192.0.2.2','x':[1]}}}}"), kStored, kLastGroup);
    Json::Value jServer = kStored["servers"][0];
    jServer["parent_id"] = 3;
    jServer["address"] = "192.0.2.2";
    EXPECT_EQ(import.jFleet, json("{'servers':[%]}", jServer.toStyledString()));
    EXPECT_EQ(notesOf(import),
              "2 groups of the store are not in the inventory and stay as they are: 1 \"a\", 2 \"b\"; "
              "3 servers of the store are not in the inventory and stay as they are: 2 \"t\", 3 \"u\", 4 \"u\"; ");
}

std::string chainOf(int groups)
{
    std::string text = "{'g0':[]";
    for (int i = 1; i < groups; ++i) {
        text += ",'g" + std::to_string(i) + "':{'children':['g" + std::to_string(i - 1) + "']}";
    }
    return text + "}";
}

TEST(Inventory, isRefusedWithThePlaceOfTheFault)
{
    const std::string longest(255, 'x');
    const std::pair<std::string, const char*> cases[] = {
        {"[]", "prints an object"},
        {"{'a':5}", "group \"a\": neither"},
        {"{'a':{'hosts':{'h':{}}}}", "group \"a\", hosts: not a list"},
        {"{'a':{'hosts':[5]}}", "group \"a\", hosts: not a list"},
        {"{'a':{'children':'b'}}", "group \"a\", children: not a list"},
        {"{'a':{'hosts':['']}}", "group \"a\", hosts: a name"},
        {"{'':[]}", "group \"\": a name"},
        {"{'a':['n\\u0000']}", "group \"a\": a name"},
        {"{'" + longest + "x':[]}", "more than 255"},
        {"{'_meta':[]}", "_meta: not an object"},
        {"{'_meta':{'hostvars':[]}}", "hostvars: not an object"},
        {"{'a':['h'],'_meta':{'hostvars':{'h':5}}}", "host \"h\": its variables"},
        {"{'a':{'children':['a']}}", "group \"a\": it is in a circle"},
        {"{'d':{'children':['a']},'a':{'children':['b']},'b':{'children':['a']}}", "its child \"a\" stands above it"},
        {"{'a':{'children':['b']},'b':{'children':['a']}}", "group \"a\": it is in a circle"},
        {"{'a':{'children':['all']}}", "group \"a\": its child \"all\""},
        {chainOf(129), "group \"g0\": more than 128"},
        {"{'ungrouped':['u']}", "host \"u\": the servers 3, 4 of the store"},
    };
    for (const auto& [inventory, szReason] : cases) {
        SCOPED_TRACE(inventory);
        try {
            importInventory(json(inventory), kStored, kLastGroup);
            ADD_FAILURE() << "accepted";
        } catch (const std::runtime_error& e) {
            EXPECT_NE(std::string(e.what()).find(szReason), std::string::npos) << e.what();
        }
    }
    EXPECT_EQ(importInventory(json(chainOf(128)), kStored, kLastGroup).jFleet["groups"].size(), 128u);
    EXPECT_EQ(importInventory(json("{'" + longest + "':[]}"), kStored, kLastGroup).jFleet["groups"].size(), 1u);
    EXPECT_THROW(importInventory(json("{}"), json("{'accounts':[{'uid':1,'admin':false}]}"), 0), std::runtime_error);
}

// Replaces each value of the inventory, one at a time, by each odd value, and imports the result.
void spoilEach(const Json::Value& jInventory, Json::Value& jPart, int& accepted)
{
    const Json::Value jSound = jPart;
    for (const char* szOdd :
         {"null", "true", "-1", "1e300", "'all'", "'ungrouped'", "''", "[]", "[[]]", "{}", "{'all':1}"}) {
        jPart = json("[" + std::string(szOdd) + "]")[0];
        try {
            importInventory(jInventory, kStored, kLastGroup);
            ++accepted;
        } catch (const std::runtime_error&) {
        }
    }
    jPart = jSound;
    for (Json::Value& jInner : jPart) {
        spoilEach(jInventory, jInner, accepted);
    }
}

TEST(Inventory, isAcceptedOrRefusedWithAnyValueAnywhere)
{
    std::ifstream file(ZEM_TEST_DATA "/inventory.json");
    Json::Value jInventory;
    file >> jInventory;
    int accepted = 0;
    spoilEach(jInventory, jInventory, accepted);
    EXPECT_GT(accepted, 0);
}

// Returns a random inventory, in which groups have any number of parents and hosts are in any number of groups.
Json::Value drawInventory(std::mt19937& chance)
{
    const auto draw = [&chance](int limit) { return static_cast<int>(chance() % static_cast<unsigned>(limit)); };
    Json::Value jInventory(Json::objectValue);
    for (int group = 0; group < 20; ++group) {
        Json::Value& jGroup = jInventory["g" + std::to_string(group)] = Json::Value(Json::objectValue);
        for (int i = draw(4); group < 19 && i > 0; --i) {
            jGroup["children"].append("g" + std::to_string(group + 1 + draw(19 - group)));
        }
        for (int i = draw(6); i > 0; --i) {
            jGroup["hosts"].append("h" + std::to_string(draw(40)));
        }
    }
    return jInventory;
}

bool names(const Json::Value& jList, const std::string& name)
{
    return std::find(jList.begin(), jList.end(), Json::Value(name)) != jList.end();
}

TEST(Inventory, keepsTheIdentifiersOfHostsThatMove)
{
    std::mt19937 chance(7);
    Json::Value jFleet = kStored;
    std::map<std::string, int64_t> ids;  // of the servers, by their names
    for (int round = 0; round < 100; ++round) {
        const Json::Value jInventory = drawInventory(chance);
        jFleet = merged(jFleet, importInventory(jInventory, jFleet, kLastGroup));
        ASSERT_EQ(recordsOf(importInventory(jInventory, jFleet, kLastGroup), jFleet), "");
        std::map<std::string, std::string> groups;  // of the servers, by their names
        for (const Json::Value& jServer : jFleet["servers"]) {
            const std::string name = jServer["name"].asString(), path = pathOf(jFleet, jServer["parent_id"].asInt64());
            const int64_t id = jServer["id"].asInt64();
            ASSERT_TRUE(name == "u" || ids.emplace(name, id).first->second == id) << name;
            groups[name] = path.substr(path.rfind('/') + 1);
        }
        for (const Json::Value& jGroup : jInventory) {
            for (const Json::Value& jHost : jGroup["hosts"]) {
                const Json::Value& jKept = jInventory[groups[jHost.asString()]];
                ASSERT_TRUE(names(jKept["hosts"], jHost.asString())) << jHost << groups[jHost.asString()];
            }
        }
    }
}

}  // namespace
