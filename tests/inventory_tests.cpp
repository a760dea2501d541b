// What an import makes of an inventory and a stored fleet.
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

// A fleet with the group tree a/b (1, 2) and c (3), the servers s (1) in b, t (2) in c and two u (3 in a, 4 in c).
const Json::Value kStored = json(
    "{'accounts':[{'uid':1,'name':'x','admin':true}],"
    "'groups':[{'id':0,'parent_id':0,'name':'root'},{'id':1,'parent_id':0,'name':'a','desc':'kept'},"
    "{'id':2,'parent_id':1,'name':'b'},{'id':3,'parent_id':0,'name':'c'}],"
    "'servers':[{'id':1,'parent_id':2,'name':'s','address':'192.0.2.1','linked_gpo':{'order':[{'id':5}]}},"
    "{'id':2,'parent_id':3,'name':'t'},{'id':3,'parent_id':1,'name':'u'},{'id':4,'parent_id':3,'name':'u'}]}");

// What is in the fleet once the import's records are in it.
Json::Value merged(Json::Value jFleet, const host::Import& import)
{
    for (const char* szSection : {"groups", "servers"}) {
        for (const Json::Value& jRecord : import.jFleet[szSection]) {
            Json::Value& jSection = jFleet[szSection];
            const auto isSame = [&](const Json::Value& jOther) { return jOther["id"] == jRecord["id"]; };
            const auto found = std::find_if(jSection.begin(), jSection.end(), isSame);
            found == jSection.end() ? void(jSection.append(jRecord)) : void(*found = jRecord);
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

// The records of an import, "21 /a/d; " for a group and "5 s in /a/d at ADDRESS; " for a server.
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

TEST(Inventory, isFoundInTheStoreAndTheRestIsMade)
{
    // The fault that a row catches, the inventory, the records, the notes but for those that stay.
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"what is equal is written", "{'all':{'children':['a','c']},'a':{'children':['b']},'b':{'hosts':['s']}}", "",
         ""},
        {"a group is found by its name alone", "{'all':{'children':['b']},'b':{'hosts':['s']}}",
         "21 /b; 1 s in /b at 192.0.2.1; ", ""},
        {"a host that is not there has an address", "{'a':{'children':['d']},'d':{'hosts':['n']}}",
         "21 /a/d; 5 n in /a/d at ; ", ""},
        {"an address is not taken over", "{'c':['t'],'_meta':{'hostvars':{'t':{'ansible_host':'::1'}}}}",
         "2 t in /c at ::1; ", ""},
        {"an address that is none is",
         "{'b':['t'],'a':{'children':['b']},'_meta':{'hostvars':{'t':{'ansible_host':5}}}}", "2 t in /a/b at ; ",
         "host \"t\": its ansible_host is not a text and left out; "},
        {"a template is taken for an address", "{'c':['t'],'_meta':{'hostvars':{'t':{'ansible_host':'{{ x }}'}}}}", "",
         "host \"t\": its ansible_host is a template and left out; "},
        {"a null address clears the stored one",
         "{'a':{'children':['b']},'b':['s'],'_meta':{'hostvars':{'s':{'ansible_host':null}}}}", "", ""},
        {"the root's own servers get a group",
         "{'all':{'hosts':['t'],'children':['ungrouped']},'ungrouped':{'hosts':"
         "['n','n'],'children':['a']},'a':{}}",
         "2 t in  at ; 5 n in  at ; ", ""},
        {"all and a group are a choice", "{'all':{'hosts':['s','t']},'c':['t'],'a':{'children':['b']},'b':['s']}", "",
         ""},
        {"the shallower group", "{'c':['s'],'a':{'children':['b']},'b':{'hosts':['s']}}", "",
         "host \"s\" is in several groups and stands in \"a/b\"; "},
        {"the later of two that are as deep", "{'all':{'children':['c','a']},'a':['t'],'c':['t']}", "",
         "host \"t\" is in several groups and stands in \"c\"; "},
        {"the later parent", "{'all':{'children':['c','a']},'a':{'children':['b']},'c':{'children':['b']}}",
         "21 /c/b; ", "group \"b\" has several parents and stands under \"c\"; "},
        {"the parent that the walk meets last",
         "{'all':{'children':['a']},'a':{'children':['b','d']},'b':{'children':['d']}}", "21 /a/d; ",
         "group \"d\" has several parents and stands under \"a\"; "},
        {"all is a parent like others", "{'all':{'children':['b','a','c','ungrouped']},'a':{'children':['b']}}", "",
         ""},
        {"a host of variables alone is made", "{'a':[],'_meta':{'hostvars':{'n':{}}}}", "",
         "host \"n\" is in no group and left out; "},
        {"an empty group is lost", "{'all':{'children':['d']}}", "21 /d; ", ""},
        {"groups and hosts share their names", "{'s':['c','s']}", "21 /s; 5 c in /s at ; 1 s in /s at 192.0.2.1; ", ""},
        {"a name is taken for a path or JSON", "{\"a/b\":[\"\\\"\\n\"]}", "21 /a/b; 5 \"\n in /a/b at ; ", ""},
        {"any server of the name is taken", "{'c':['u']}", "",
         "host \"u\": of the servers 3, 4 of that name it is 4, which stands in its group; "},
        {"an empty inventory is an error", "{}", "", ""},
    };
    for (const auto& [szFault, szInventory, szRecords, szNotes] : cases) {
        SCOPED_TRACE(szFault);
        host::Import import = importInventory(json(szInventory), kStored, kLastGroup);
        EXPECT_EQ(recordsOf(import), szRecords);
        const std::string kept = import.notes.empty() ? "" : import.notes.back();
        EXPECT_TRUE(kept.ends_with(" of the store are not in the inventory and stay as they are")) << kept;
        import.notes.pop_back();
        EXPECT_EQ(notesOf(import), szNotes);
        const host::Import again = importInventory(json(szInventory), merged(kStored, import), kLastGroup + 1);
        EXPECT_EQ(recordsOf(again), "") << "the second time";
    }
}

TEST(Inventory, keepsWhatItDoesNotKnow)
{
    const host::Import import = importInventory(
        json("{'c':['s'],'_meta':{'hostvars':{'s':{'ansible_host':'192.0.2.2','x':[1]}}}}"), kStored, kLastGroup);
    Json::Value jServer = kStored["servers"][0];
    jServer["parent_id"] = 3;
    jServer["address"] = "192.0.2.2";
    EXPECT_EQ(import.jFleet, json("{'servers':[%]}", jServer.toStyledString()));
    EXPECT_EQ(notesOf(import), "2 groups and 3 servers of the store are not in the inventory and stay as they are; ");
}

std::string chainOf(int groups)
{
    std::string text = "{'g0':[]";
    for (int i = 1; i < groups; ++i) {
        text += ",'g" + std::to_string(i) + "':{'children':['g" + std::to_string(i - 1) + "']}";
    }
    return text + "}";
}

TEST(Inventory, isRefusedWithItsPlace)
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
            ADD_FAILURE() << "taken";
        } catch (const std::runtime_error& e) {
            EXPECT_NE(std::string(e.what()).find(szReason), std::string::npos) << e.what();
        }
    }
    EXPECT_EQ(importInventory(json(chainOf(128)), kStored, kLastGroup).jFleet["groups"].size(), 128u);
    EXPECT_EQ(importInventory(json("{'" + longest + "':[]}"), kStored, kLastGroup).jFleet["groups"].size(), 1u);
    EXPECT_THROW(importInventory(json("{}"), json("{'accounts':[{'uid':1,'admin':false}]}"), 0), std::runtime_error);
}

// Puts each odd value in the place of each value of the inventory, one at a time.
void spoilEach(const Json::Value& jInventory, Json::Value& jPart, int& taken)
{
    const Json::Value jSound = jPart;
    for (const char* szOdd :
         {"null", "true", "-1", "1e300", "'all'", "'ungrouped'", "''", "[]", "[[]]", "{}", "{'all':1}"}) {
        jPart = json("[" + std::string(szOdd) + "]")[0];
        try {
            importInventory(jInventory, kStored, kLastGroup);
            ++taken;
        } catch (const std::runtime_error&) {
        }
    }
    jPart = jSound;
    for (Json::Value& jInner : jPart) {
        spoilEach(jInventory, jInner, taken);
    }
}

TEST(Inventory, mayHoldAnyValueAnywhere)
{
    std::ifstream file(ZEM_TEST_DATA "/inventory.json");
    Json::Value jInventory;
    file >> jInventory;
    int taken = 0;
    spoilEach(jInventory, jInventory, taken);
    EXPECT_GT(taken, 0);
}

// Groups that are any number of others' children, hosts in any number of them.
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

TEST(Inventory, keepsIdentifiersWhereverHostsGo)
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
