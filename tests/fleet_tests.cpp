// Applies fleet files to a store on a real database and exports them again: plans, refusals and stored records.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "platform/velq_zem.h"
#include "store/records/records.h"
#include "tests/temp_database.h"

using test::delegates;
using test::json;
using test::linking;

namespace {

using Lines = std::vector<std::string>;

constexpr const char* kFleet = R"({
  "accounts": [{"uid":1,"name":"admin","admin":true}, {"uid":2,"name":"helper","domain_name":"corp"},
               {"uid":3,"name":"other"}],
  "groups": [{"id":3,"parent_id":2,"name":"c"}, {"id":1,"parent_id":0,"name":"a","desc":"top"},
             {"id":2,"parent_id":1,"name":"b","linked_gpo":{"order":[{"id":1,"on":true},{"id":2}],"kept":7},
              "delegate":[{"ugid":2,"user_type":2},{"ugid":1,"user_type":2}]}, {"id":4,"parent_id":0,"name":"d"}],
  "policies": [{"id":1,"name":"p1","parent_id":0,"setting":{"version":1}}, {"id":2,"name":"p2","parent_id":3}],
  "servers": [{"id":1,"parent_id":3,"name":"s1","address":"192.0.2.1","sid":"S"},
              {"id":2,"parent_id":0,"name":"s2","linked_gpo":{"order":[{"id":1}]},
               "delegate":[{"ugid":3,"user_type":2}]}]})";

std::string countText(const store::PlanCount& count)
{
    return std::to_string(count.created) + "+ " + std::to_string(count.changed) + "~ " + std::to_string(count.deleted) +
           "-";
}

// The lines of the plan and then its counts; for a refused fleet the reason only.
Lines apply(const Json::Value& jFleet, const store::ApplyOptions& options = {})
{
    Lines lines;
    try {
        const auto take = [&lines](const std::string& line) { lines.push_back(line); };
        const std::string counts = countText(store::applyFleet(jFleet, options, take));
        lines.push_back(counts);
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(lines.size(), 0u);
        lines = {error.what()};
    }
    return lines;
}

constexpr store::ApplyOptions kPrune{.dryRun = false, .prune = true};
constexpr store::ApplyOptions kDryPrune{.dryRun = true, .prune = true};

std::string exportText()
{
    std::string text;
    store::exportFleet([&text](const std::string& line) { text += line + "\n"; });
    return text;
}

// The exported fleet; unless asked for, without the members that only the store writes.
Json::Value exported(bool withStoreManaged = false)
{
    Json::Value jFleet = json(exportText());
    for (Json::Value& jSection : jFleet) {
        for (Json::Value& jRecord : jSection) {
            if (!withStoreManaged) {
                jRecord.removeMember("mtime");
                jRecord.removeMember("revision");
            }
        }
    }
    return jFleet;
}

Json::Value& record(Json::Value& jFleet, const char* szSection, int id)
{
    for (Json::Value& jRecord : jFleet[szSection]) {
        if (jRecord[*szSection == 'a' ? "uid" : "id"] == id) {
            return jRecord;
        }
    }
    throw std::invalid_argument("no such record");
}

void setMembers(const Json::Value& jMembers, Json::Value& jRecord)
{
    for (auto member = jMembers.begin(); member != jMembers.end(); ++member) {
        jRecord[member.name()] = *member;
    }
}

int64_t revisionOf(const char* szSection, int id)
{
    Json::Value jFleet = exported(true);
    return record(jFleet, szSection, id)["revision"].asInt64();
}

// Why the export fails; empty when it does not.
std::string exportError()
{
    try {
        exportText();
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

class FleetTest : public test::DatabaseTest {
    void prepare() override
    {
        VELQZEMStoreOpen(url());
    }
};

INSTANTIATE_TEST_SUITE_P(Databases, FleetTest, testing::ValuesIn(test::kDatabases));

// --- Random fleets, in the form in which they are exported

// Names and identifiers come from small ranges, so that two fleets often use the same ones for different records.
class RandomFleet {
public:
    explicit RandomFleet(unsigned seed) : m_random(seed)
    {
        addAccounts();
        addGroups();
        for (const int id : m_policies) {
            maySet(addNode("policies", id), "setting", json("{'version':%}", pick(1, 2)));
        }
        for (const int id : someOf(6)) {
            Json::Value& jServer = addNode("servers", id);
            maySet(jServer, "address", name());
            addRelations(jServer);
        }
    }
    Json::Value jFleet = json("{'accounts':[],'groups':[],'policies':[],'servers':[]}");

private:
    int pick(int least, int most)
    {
        return std::uniform_int_distribution(least, most)(m_random);
    }
    bool isOneInThree()
    {
        return pick(1, 3) == 1;
    }
    // Sets the member in one of three calls, on average.
    void maySet(Json::Value& jRecord, const char* szMember, const Json::Value& jValue)
    {
        if (isOneInThree()) {
            jRecord[szMember] = jValue;
        }
    }
    std::string name()
    {
        return std::string(1, static_cast<char>('a' + pick(0, 3)));
    }
    int anyGroup()
    {
        return m_groups[static_cast<size_t>(pick(0, static_cast<int>(m_groups.size()) - 1))];
    }
    // About two thirds of the numbers from 1 to the highest.
    std::vector<int> someOf(int highest)
    {
        std::vector<int> ids;
        for (int id = 1; id <= highest; ++id) {
            if (!isOneInThree()) {
                ids.push_back(id);
            }
        }
        return ids;
    }
    Json::Value& addNode(const char* szSection, int id)
    {
        return jFleet[szSection].append(json("{'id':%,'parent_id':%,'name':'%'}", id, anyGroup(), name()));
    }
    void addAccounts()
    {
        m_uids.push_back(6);  // there is always an administrator
        const int shift = pick(0, 5);
        for (const int uid : m_uids) {
            Json::Value& jAccount = jFleet["accounts"].append(json("{'uid':%,'name':'n%'}", uid, (uid + shift) % 6));
            maySet(jAccount, "admin", true);
        }
        jFleet["accounts"][pick(0, static_cast<int>(m_uids.size()) - 1)]["admin"] = true;
    }
    // Adds groups in random order, each below one of those before it.
    void addGroups()
    {
        std::set<std::pair<int, std::string>> places;
        std::map<int, Json::Value> jGroups{{0, json("{'id':0,'parent_id':0,'name':'%'}", pick(0, 1))}};
        std::vector<int> ids = someOf(9);
        std::shuffle(ids.begin(), ids.end(), m_random);
        for (const int id : ids) {
            std::pair<int, std::string> place;
            do {
                place = {anyGroup(), name()};
            } while (!places.insert(place).second);
            jGroups[id] = json("{'id':%,'parent_id':%,'name':'%'}", id, place.first, place.second);
            m_groups.push_back(id);
        }
        for (auto& [id, jGroup] : jGroups) {
            maySet(jGroup, "desc", name());
            maySet(jGroup, "block_inheritance", true);
            maySet(jGroup, "extra_info", json("{'k':[%]}", pick(0, 1)));
            addRelations(jGroup);
            jFleet["groups"].append(jGroup);
        }
    }
    void addRelations(Json::Value& jNode)
    {
        for (const int id : atMostTwoOf(m_policies)) {
            jNode["linked_gpo"]["order"].append(json("{'id':%}", id));
        }
        for (const int uid : atMostTwoOf(m_uids)) {
            jNode["delegate"].append(json("{'ugid':%,'user_type':2}", uid));
        }
    }
    // In random order.
    std::vector<int> atMostTwoOf(std::vector<int> ids)
    {
        std::shuffle(ids.begin(), ids.end(), m_random);
        ids.resize(std::min(ids.size(), static_cast<size_t>(pick(0, 2))));
        return ids;
    }
    std::mt19937 m_random;
    std::vector<int> m_groups = {0}, m_uids = someOf(5), m_policies = someOf(5);
};

using Records = std::map<std::string, Json::Value>;  // by kind and identifier: "group 3"

Records recordsOf(const Json::Value& jFleet)
{
    Records records;
    for (const auto& [szSection, kind] :
         {std::pair("accounts", "account"), {"groups", "group"}, {"policies", "policy"}, {"servers", "server"}}) {
        for (const Json::Value& jRecord : jFleet[szSection]) {
            records[kind + (" " + jRecord[*szSection == 'a' ? "uid" : "id"].asString())] = jRecord;
        }
    }
    return records;
}

// The beginning of each line of the plan that leads from some records to others: "+ group 3".
std::multiset<std::string> expectedLineHeads(const Records& before, const Records& after)
{
    std::multiset<std::string> heads;
    for (const auto& [name, jRecord] : after) {
        const auto old = before.find(name);
        if (old == before.end() || old->second != jRecord) {
            heads.insert((old == before.end() ? "+ " : "~ ") + name);
        }
    }
    for (const auto& [name, jRecord] : before) {
        if (!after.contains(name)) {
            heads.insert("- " + name);
        }
    }
    return heads;
}

std::multiset<std::string> lineHeads(Lines lines)
{
    lines.pop_back();
    std::multiset<std::string> heads;
    for (const std::string& line : lines) {
        heads.insert(line.substr(0, line.find(' ', line.find(' ', 2) + 1)));
    }
    return heads;
}

// Expects a higher revision exactly where members of the record changed; delegates are not members.
void expectRevisions(const Json::Value& jBefore, const Json::Value& jAfter)
{
    const auto before = recordsOf(jBefore);
    for (auto [name, jRecord] : recordsOf(jAfter)) {
        const auto old = before.find(name);
        if (old == before.end() || name.starts_with("account")) {
            continue;
        }
        Json::Value jOld = old->second;
        const int64_t revision = jRecord["revision"].asInt64(), oldRevision = jOld["revision"].asInt64();
        for (const char* szMember : {"revision", "mtime", "delegate"}) {
            jOld.removeMember(szMember);
            jRecord.removeMember(szMember);
        }
        EXPECT_EQ(revision, oldRevision + (jOld != jRecord)) << name;
    }
}

TEST_P(FleetTest, applyTurnsAnyFleetIntoAnyOtherOrKeepsRecordsThatTheFileLacks)
{
    int kept = 0, refused = 0;
    for (unsigned seed = 0; seed < 240; ++seed) {
        SCOPED_TRACE(seed);
        const bool isPruned = seed % 2 == 0;
        const Json::Value jFleet = RandomFleet(seed).jFleet, jStored = exported(true);
        const Records before = recordsOf(exported());
        Records expected = recordsOf(jFleet);
        if (!isPruned) {
            expected.merge(Records(before));
        }
        const Lines planned = apply(jFleet, {.dryRun = true, .prune = isPruned});
        EXPECT_EQ(exported(true), jStored);
        const Lines done = apply(jFleet, {.dryRun = false, .prune = isPruned});
        EXPECT_EQ(done, planned);
        if (!isPruned && !done.back().ends_with("-")) {  // a cycle of groups, or two siblings with one name
            EXPECT_EQ(exported(true), jStored);
            ++refused;
            continue;
        }
        ASSERT_EQ(recordsOf(exported()), expected) << done.back();
        EXPECT_EQ(isPruned ? exported() : jFleet, jFleet);  // in the same order
        EXPECT_EQ(lineHeads(done), expectedLineHeads(before, expected));
        expectRevisions(jStored, exported(true));
        EXPECT_EQ(apply(jFleet, {.dryRun = false, .prune = isPruned}), Lines{"0+ 0~ 0-"});
        kept += !isPruned;
    }
    EXPECT_GT(kept, 20);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(damage(), std::multiset<std::string>());
}

// --- Plans

TEST_P(FleetTest, planLinesShowEachChangeAndCannotBeForged)
{
    const auto linksUpTo = [](int last) {
        std::string text;
        for (int id = 100; id <= last; ++id) {
            text += (text.empty() ? "{'id':" : ",{'id':") + std::to_string(id) + "}";
        }
        return linking(text);
    };
    Json::Value jBase = json(kFleet);
    for (int id = 100; id < 140; ++id) {
        jBase["policies"].append(json("{'id':%,'name':'many','parent_id':0}", id));
    }
    const std::string longText(99, 'x');
    setMembers(json("{'desc':'" + longText + "\u00e8','setting':{'version':1,'values':['" + longText + "',1]}}"),
               record(jBase, "policies", 100));
    setMembers(json(linksUpTo(139)), record(jBase, "groups", 3));
    const std::tuple<const char*, int, std::string, std::string> cases[] = {
        {"servers", 1, "{'address':'192.0.2.7'}", "~ server 1 s1: address 192.0.2.1 -> 192.0.2.7"},
        {"servers", 1, "{'name':'x','address':'','sid':null}",
         "~ server 1 s1: name s1 -> x, address 192.0.2.1 -> \"\", sid S -> \"\""},
        {"servers", 2, "{'linked_gpo':null,'delegate':[]}", "~ server 2 s2: linked_gpo 1 -> \"\", delegate 3 -> \"\""},
        {"groups", 2, linking("{'id':2},{'gpo_id':1}"), "~ group 2 b: linked_gpo 1,2 -> 2,1"},
        {"groups", 2, linking("{'id':1},{'id':2}"),
         R"(~ group 2 b: linked_gpo {"kept":7,"order":[{"id":1,"on":true},{"id":2}]} -> {"order":[{"id":1},{"id":2}]})"},
        {"groups", 2, "{'delegate':" + delegates({1, 2}) + "}", "~ group 2 b: delegate 2,1 -> 1,2"},
        {"groups", 4, "{'parent_id':1,'block_inheritance':true,'extra_info':{'a':1}}",
         R"(~ group 4 d: parent_id 0 -> 1, block_inheritance false -> true, extra_info "" -> {"a":1})"},
        {"policies", 1, "{'setting':{'version':2}}", R"(~ policy 1 p1: setting {"version":1} -> {"version":2})"},
        {"accounts", 2, "{'admin':true}", "~ account 2 helper: admin false -> true"},
        {"groups", 4, "{'name':'d e'}", R"(~ group 4 d: name d -> "d e")"},
        {"groups", 4, "{'name':'d, desc x -> y'}", R"(~ group 4 d: name d -> "d, desc x -> y")"},
        {"groups", 4, R"({"name":"d\n- policy 3"})", R"(~ group 4 d: name d -> "d\n- policy 3")"},
        {"groups", 4, R"({"name":"\u001b[2Jd\u009b\u202e\u00fcgr\u00fc\u00df"})",
         "~ group 4 d: name d -> \"\\u001b[2Jd\\u009b\\u202e\u00fcgr\u00fc\u00df\""},
        {"groups", 4, "{'name':'\U0001F600\U000E0041'}", "~ group 4 d: name d -> \"\U0001F600\\udb40\\udc41\""},
        {"groups", 4, R"({"name":"a\\\"b"})", R"(~ group 4 d: name d -> "a\\\"b")"},
        {"groups", 4, "{'desc':'" + std::string(300, 'x') + "'}",
         "~ group 4 d: desc \"\" -> " + std::string(80, 'x') + "..."},
        {"groups", 4, "{'desc':'" + std::string(79, 'x') + "\u00fc'}",
         "~ group 4 d: desc \"\" -> " + std::string(79, 'x') + "..."},
        {"groups", 4, linksUpTo(139),
         "~ group 4 d: linked_gpo \"\" -> "
         "100,101,102,103,104,105,106,107,108,109,110,111,112,113,114,115,116,117,118,119,"
         "..."},
        {"groups", 3, linksUpTo(138),
         "~ group 3 c: linked_gpo ...,129,130,131,132,133,134,135,136,137,138,139 -> "
         "...,129,130,131,132,133,134,135,136,137,138"},
        {"policies", 100, "{'setting':{'version':1,'values':['" + longText + "',2]}}",
         R"(~ policy 100 many: setting ..."xxxxxxxx\",1],\"version\":1}" -> ..."xxxxxxxx\",2],\"version\":1}")"},
        {"policies", 100, "{'desc':'" + longText + "\u00e9'}",
         "~ policy 100 many: desc ...xxxxxxxxx\u00e8 -> ...xxxxxxxxx\u00e9"},
        {"groups", 0, "{'desc':'all'}", "~ group 0 root: desc \"\" -> all"},
        {"servers", 9, "{'id':9,'parent_id':4,'name':'new one'}", "+ server 9 \"new one\""}};
    jBase["groups"].append(json("{'id':0}"));
    for (const auto& [szSection, id, text, line] : cases) {
        apply(jBase, kPrune);
        Json::Value jFleet = jBase;
        const Json::Value jMembers = json(text);
        Json::Value& jRecord =
            jMembers.isMember("id") ? jFleet[szSection].append(Json::Value()) : record(jFleet, szSection, id);
        setMembers(jMembers, jRecord);
        EXPECT_EQ(apply(jFleet, kDryPrune).at(0), line);
        EXPECT_EQ(apply(jFleet, kPrune).at(0), line);
    }
}

// --- Refusals

TEST_P(FleetTest, refusalsNameThePlaceAndChangeNothing)
{
    const std::string unknownKey = ": a key that fleet files do not have";
    const std::tuple<const char*, int, std::string, std::string> faults[] = {
        {"groups", 1, "{'id':3}", "groups[1].id: a record of the kind before has it too"},
        {"groups", 1, "{'id':-1}", "groups[1].id: missing or not from 1 to 2^62 - 1"},
        {"groups", 0, "{'parent_id':99}", "groups[0].parent_id: no group 99"},
        {"groups", 1, "{'parent_id':3}", "groups[0].parent_id: leads round in a circle"},
        {"groups", 2, "{'name':7}", "groups[2].name: not a text"},
        {"groups", 2, "{'name':null}", "groups[2].name: missing or empty"},
        {"groups", 3, "{'name':'a'}", "groups[3].name: group 1 has the same parent and name"},
        {"groups", 2, "{'delegate':" + delegates({9}) + "}", "groups[2].delegate[0].ugid: no account 9"},
        {"groups", 2, "{'delegate':" + delegates({2, 2}) + "}",
         "groups[2].delegate[1]: a delegate that is named before"},
        {"groups", 2, "{'delegates':[]}", "groups[2].delegates" + unknownKey},
        {"groups", 2, "{'delegate':[{'ugid':2,'user_type':2,'name':'x'}]}", "groups[2].delegate[0].name" + unknownKey},
        {"groups", 2, linking("{'id':1,'gpo_name':'p1'}"), "groups[2].linked_gpo.order[0].gpo_name" + unknownKey},
        {"groups", 2, linking("{'id':1,'gpo_id':2}"), "groups[2].linked_gpo.order[0].gpo_id" + unknownKey},
        {"groups", 2, linking("{'id':1},{'id':1}"), "groups[2].linked_gpo.order[1]: a policy that is linked before"},
        {"groups", 2, "{'address':'x'}", "groups[2].address" + unknownKey},
        {"groups", 2, "{'revision':-1}", "groups[2].revision: not from 0 to 2^62 - 1"},
        {"groups", 2, "{'id':0}", "groups[2].parent_id: the root group stays where it is"},
        {"servers", 1, linking("{'id':1},{'id':9}"), "servers[1].linked_gpo.order[1].id: no policy 9"},
        {"servers", 1, "{'parent_id':null}", "servers[1].parent_id: missing"},
        {"policies", 0, "{'setting':{}}", "policies[0].setting.version: not a 32-bit integer"},
        {"policies", 0, "{'setting':{'version':1,'x':'" + std::string(1 << 20, 'x') + "'}}",
         "policies[0].setting: longer than 1048576 bytes"},
        {"accounts", 0, "{'domain_name':'" + std::string(65537, 'x') + "'}",
         "accounts[0].domain_name: longer than 65536 bytes"},
        {"policies", 0, "{'delegate':[]}", "policies[0].delegate" + unknownKey},
        {"accounts", 2, "{'uid':4294967295}", "accounts[2].uid: missing or not from 0 to 4294967294"},
        {"accounts", 1, "{'name':'admin'}", "accounts[1].name: account 1 has it too"},
        {"accounts", 0, "{'admin':false}", "accounts: none is an administrator"}};
    const auto expectRefusals = [&faults] {
        const std::string before = exportText();
        for (const auto& [szSection, index, members, message] : faults) {
            Json::Value jFleet = json(kFleet);
            setMembers(json(members), jFleet[szSection][index]);
            EXPECT_EQ(apply(jFleet, kDryPrune), Lines{message});
            EXPECT_EQ(apply(jFleet, kPrune), Lines{message});
        }
        Json::Value jDeep = json(kFleet);
        Json::Value* pInner = &jDeep["groups"][2]["extra_info"];
        for (int level = 0; level < 1001; ++level) {
            pInner = &pInner->append(Json::Value(Json::arrayValue));
        }
        EXPECT_EQ(apply(jDeep), Lines{"groups[2].extra_info: a value that is nested too deep"});
        EXPECT_EQ(apply(json("{'groups':5}")), Lines{"groups: not an array"});
        EXPECT_EQ(apply(json("{'group':[]}")), Lines{"group: a key that fleet files do not have"});
        EXPECT_EQ(apply(json("[]")), Lines{"fleet: not an object"});
        EXPECT_EQ(exportText(), before);
    };
    expectRefusals();
    EXPECT_EQ(apply(json(kFleet)).back(), "11+ 0~ 0-");
    expectRefusals();
}

TEST_P(FleetTest, aPartialFleetIsCheckedTogetherWithTheStoredOne)
{
    apply(json(kFleet));
    const std::pair<const char*, const char*> cases[] = {
        {"{'groups':[{'id':1,'parent_id':3,'name':'a'}]}", "groups[0].parent_id: leads round in a circle"},
        {"{'groups':[{'id':9,'parent_id':1,'name':'b'}]}", "groups[0].name: group 2 has the same parent and name"},
        {"{'groups':[{'id':9,'parent_id':8,'name':'b'}]}", "groups[0].parent_id: no group 8"},
        {"{'accounts':[{'uid':9,'name':'helper'}]}", "accounts[0].name: account 2 has it too"},
        {"{'accounts':[{'uid':1,'name':'admin'}]}", "accounts: none is an administrator"},
        {"{'servers':[{'id':9,'parent_id':3,'name':'s','delegate':[{'ugid':8,'user_type':2}]}]}",
         "servers[0].delegate[0].ugid: no account 8"},
        {"{'servers':[{'id':9,'parent_id':3,'name':'s','linked_gpo':{'order':[{'id':2}]},"
         "'delegate':[{'ugid':3,'user_type':2}]}]}",
         "1+ 0~ 0-"},
        {"{'policies':[{'id':2,'parent_id':9,'name':'p2'}],'groups':[{'id':9,'parent_id':3,'name':'n'}]}", "1+ 1~ 0-"},
        {"{'groups':[{'id':0}]}", "0+ 0~ 0-"},
        {"{}", "0+ 0~ 0-"}};
    for (const auto& [szFleet, szLastLine] : cases) {
        const std::string before = exportText();
        EXPECT_EQ(apply(json(szFleet)).back(), szLastLine) << szFleet;
        EXPECT_EQ(exportText() == before,
                  !std::string(szLastLine).ends_with("-") || szLastLine == std::string("0+ 0~ 0-"));
    }
    Json::Value jFleet;
    for (int level = 0; level < store::kMaxGroupDepth; ++level) {
        jFleet["groups"].append(
            json("{'id':%,'parent_id':%,'name':'deep'}", 1000 + level, level == 0 ? 0 : 999 + level));
    }
    EXPECT_EQ(apply(jFleet).back(), "128+ 0~ 0-");
    const std::string tooDeep = ".parent_id: more than 128 groups below one another, or a circle";
    EXPECT_EQ(apply(json("{'groups':[{'id':9,'parent_id':1127,'name':'n'}]}")), Lines{"groups[0]" + tooDeep});
    EXPECT_EQ(apply(json("{'groups':[{'id':2,'parent_id':1126,'name':'b'}]}")),
              Lines{"group 3 of the store: " + tooDeep.substr(1)});
}

// --- What is stored

TEST_P(FleetTest, applyingAnEqualFleetWritesNothing)
{
    Json::Value jFleet = json(kFleet);
    for (int id = 10; id < 3000; ++id) {
        jFleet["groups"].append(json("{'id':%,'parent_id':%,'name':'%'}", id, id == 10 ? 0 : 10, id));
    }
    apply(jFleet);
    soci::session watcher = m_pDatabase->connect();
    const auto versions = [&] {  // differ once a transaction has written something
        std::string text;
        for (const char* szTable : {"account", "ou", "kx", "gpo", "delegate", "gpo_fetch", "meta"}) {
            std::string version;
            watcher << (isSqlite() ? "PRAGMA data_version"
                                   : "SELECT COALESCE(string_agg(xmin::text || ctid::text, ' '), '') FROM " +
                                         std::string(szTable)),
                soci::into(version);
            text += version + "\n";
        }
        return text;
    };
    const std::string before = versions();
    const uint64_t statements = store::statementCount();
    EXPECT_EQ(apply(exported(true), kPrune), Lines{"0+ 0~ 0-"});
    EXPECT_EQ(apply(jFleet), Lines{"0+ 0~ 0-"});
    EXPECT_LT(store::statementCount() - statements, 40u);
    EXPECT_EQ(versions(), before);
    EXPECT_EQ(apply(json("{'accounts':[{'uid':3,'name':'else'}]}")).back(), "0+ 1~ 0-");
    EXPECT_NE(versions(), before);  // shows that the check above can fail
    EXPECT_EQ(apply(json(kFleet), kPrune).back(), "0+ 1~ 2990-");
}

TEST_P(FleetTest, anExportAppliedToANewStoreIsExportedByteForByte)
{
    Json::Value jFleet = json(kFleet);
    jFleet["groups"].append(json("{'id':0,'desc':'all','delegate':[{'ugid':2,'user_type':2}]}"));
    jFleet["groups"][0]["extra_info"] = json(R"(["\u0000\u009b",1.5,18446744073709551615,{"\u00fc":null}])");
    jFleet["groups"][0]["name"] = "\u00fc\u009b\x7f'\"\\";
    apply(jFleet);
    jFleet["groups"][1]["desc"] = "changed";
    jFleet["groups"][4]["name"] = "all of it";
    apply(jFleet);
    runSql("UPDATE ou SET mtime = mtime - 1000");
    const std::string text = exportText();
    EXPECT_NE(text.find("{\"id\": 0, \"parent_id\": 0, \"name\": \"all of it\", \"desc\": \"all\", \"delegate\": "
                        "[{\"ugid\":2,\"user_type\":2}], \"mtime\": "),
              text.npos);
    EXPECT_EQ(text.find("\u009b"), text.npos);  // no control sequence for a terminal
    EXPECT_EQ(revisionOf("groups", 0), 2);
    EXPECT_EQ(revisionOf("groups", 1), 2);
    openNewStore();
    apply(json(text));
    EXPECT_EQ(exportText(), text);
    EXPECT_EQ(apply(json("{'groups':[{'id':0,'mtime':7,'revision':9}]}")).at(0),
              "~ group 0 \"all of it\": name \"all of it\" -> root, desc all -> \"\", delegate 2 -> \"\"");
    EXPECT_EQ(revisionOf("groups", 0), 3);
}

TEST_P(FleetTest, tokensStayWithTheirAccountsAndIdentifiersAreNotReused)
{
    apply(json(kFleet));
    store::addToken(2, "h2", "", 0);
    store::addToken(3, "h3", "", 0);
    Json::Value jFleet = exported();
    record(jFleet, "accounts", 2)["name"] = "other";  // the two accounts swap their names
    record(jFleet, "accounts", 3)["name"] = "helper";
    EXPECT_EQ(apply(jFleet), Lines({"~ account 2 helper: name helper -> other",
                                    "~ account 3 other: name other -> helper", "0+ 2~ 0-"}));
    EXPECT_EQ(store::findAccountByToken("h2")->name, "other");
    EXPECT_EQ(store::findAccountByToken("h3")->name, "helper");
    const char* szSmaller =
        R"({"accounts":[{"uid":1,"name":"admin","admin":true}],"groups":[{"id":8,"parent_id":0,"name":"z"}]})";
    EXPECT_EQ(
        apply(json(szSmaller), kPrune),
        Lines({"- account 2 other", "- account 3 helper", "- group 1 a", "- group 2 b", "- group 3 c", "- group 4 d",
               "+ group 8 z", "- policy 1 p1", "- policy 2 p2", "- server 1 s1", "- server 2 s2", "1+ 0~ 10-"}));
    EXPECT_FALSE(store::findAccountByToken("h2").has_value());
    EXPECT_EQ(apply(json("{'accounts':[{'uid':1,'name':'admin','admin':true}]}"), kPrune).back(), "0+ 0~ 1-");
    EXPECT_EQ(apply(json(kFleet)).back(), "10+ 0~ 0-");
    _tag_velq_zem_ou_ created;
    created.name = "next";
    ASSERT_EQ(VELQZEMOuCreate(&created), 0);
    EXPECT_EQ(created.id, 9);
}

TEST_P(FleetTest, nodesWhosePoliciesChangeGetAFetchNotice)
{
    apply(json(kFleet));
    const auto takeNotices = [this] {
        std::string text;
        for (const std::string& node : rows("SELECT node_type || '.' || node_id FROM gpo_fetch")) {
            text += node + " ";
        }
        runSql("DELETE FROM gpo_fetch");
        return text;
    };
    EXPECT_EQ(takeNotices(), "");  // new nodes need no notice
    const std::tuple<const char*, int, const char*, const char*> cases[] = {
        {"groups", 1, "{'desc':'x'}", ""},         {"groups", 1, "{'block_inheritance':true}", "2.1 "},
        {"groups", 3, "{'parent_id':4}", "2.3 "},  {"servers", 2, "{'linked_gpo':null}", "3.2 "},
        {"servers", 1, "{'parent_id':1}", "3.1 "}, {"policies", 1, "{'setting':{'version':2}}", "2.2 3.2 "},
        {"policies", 1, "{'name':'renamed'}", ""}};
    for (const auto& [szSection, id, szMembers, szNotices] : cases) {
        apply(json(kFleet), kPrune);
        takeNotices();
        Json::Value jFleet = json(kFleet);
        setMembers(json(szMembers), record(jFleet, szSection, id));
        apply(jFleet);
        EXPECT_EQ(takeNotices(), szNotices) << szMembers;
    }
    for (const int64_t id : {2, 3, 4}) {
        EXPECT_EQ(VELQZEMGpoNotifyFetch(1, VELQ_ZEM_TYPE_OU, id), 0);
    }
    apply(json("{'accounts':[{'uid':1,'name':'admin','admin':true}],'groups':[{'id':4,'parent_id':0,'name':'d'}]}"),
          kPrune);
    EXPECT_EQ(takeNotices(), "2.4 ");
}

TEST_P(FleetTest, exportNamesADamagedRecordAndApplyRepairsIt)
{
    constexpr const char* kStrayDelegate = "INSERT INTO delegate VALUES (3, 9, 0, 3, 2)";  // of a missing server
    const std::pair<const char*, const char*> cases[] = {
        {"UPDATE ou SET linked_gpo = '{\"order\":7}' WHERE id = 2",
         "group 2 of the store: linked_gpo.order: not an array"},
        {"UPDATE kx SET linked_gpo = 'x' WHERE id = 1", "server 1 of the store: linked_gpo: a text is not JSON"},
        {"UPDATE gpo SET setting = '[' WHERE id = 1", "policy 1 of the store: setting: a text is not JSON"},
        {"UPDATE ou SET name = '' WHERE id = 4", "group 4 of the store: name: missing or empty"},
        {"UPDATE ou SET parent_id = 3 WHERE id = 1", "group 1 of the store: parent_id: leads round in a circle"},
        {"DELETE FROM account WHERE uid = 2", "group 2 of the store: delegate[0].ugid: no account 2"},
        {"UPDATE delegate SET user_type = 7 WHERE node_type = 3",
         "server 2 of the store: delegate[0].ugid: no account -1"},
        {"DELETE FROM gpo WHERE id = 1", "group 2 of the store: linked_gpo.order[0].id: no policy 1"}};
    for (const auto& [szDamage, szReason] : cases) {
        openNewStore(json(kFleet));
        const std::string text = exportText();
        const Json::Value jIntact = exported();
        runSql(szDamage, kStrayDelegate);
        EXPECT_EQ(exportError(), szReason);
        if (std::string(szReason).find("circle") == std::string::npos) {
            EXPECT_EQ(apply(json("{'servers':[{'id':9,'parent_id':4,'name':'new'}]}")).back(), "1+ 0~ 0-");
            EXPECT_EQ(rows("SELECT 'delegate ' || ugid FROM delegate WHERE node_id = 9"), std::multiset<std::string>());
        }
        EXPECT_EQ(apply(json(text), kPrune).at(0).substr(0, 1), *szDamage == 'D' ? "+" : "~") << szDamage;
        EXPECT_EQ(exported(), jIntact);
    }
    runSql(
        "UPDATE ou SET linked_gpo = '{ \"kept\": 7, \"order\": [ {\"id\":1,\"on\":true}, {\"id\":2} ] }' WHERE id = 2");
    EXPECT_EQ(apply(json(kFleet)), Lines{"0+ 0~ 0-"});  // the same links in another form
    runSql("DELETE FROM kx", "DELETE FROM gpo", "DELETE FROM ou");
    const std::string noRoot = "group 0 of the store: it is missing, or has not the lowest identifier";
    EXPECT_EQ(exportError(), noRoot);
    EXPECT_EQ(apply(json("{}")), Lines{noRoot});
    EXPECT_EQ(apply(json(kFleet), kPrune).at(0), "+ group 0 root");
    EXPECT_EQ(exportError(), "");
}

TEST_P(FleetTest, reviseFleetStartsFromTheStoredFleetAndDeletesNothing)
{
    apply(json(kFleet));
    Lines lines;
    Json::Value jGiven;
    const auto revise = [&jGiven](const Json::Value& jStored, int64_t lastGroup) {
        EXPECT_EQ(lastGroup, 4);
        jGiven = jStored;
        Json::Value jFleet;
        jFleet["groups"].append(jStored["groups"][1])["desc"] = "revised";
        jFleet["servers"].append(json("{'id':3,'parent_id':1,'name':'s3'}"));
        return jFleet;
    };
    const auto take = [&lines](const std::string& line) { lines.push_back(line); };
    const Json::Value jBefore = exported(true);
    EXPECT_EQ(countText(store::reviseFleet(revise, true, take)), "1+ 1~ 0-");
    EXPECT_EQ(exported(true), jBefore);
    EXPECT_EQ(countText(store::reviseFleet(revise, false, take)), "1+ 1~ 0-");
    EXPECT_EQ(jGiven, jBefore);
    EXPECT_EQ(lines, Lines({"~ group 1 a: desc top -> revised", "+ server 3 s3", "~ group 1 a: desc top -> revised",
                            "+ server 3 s3"}));
    EXPECT_THROW(
        store::reviseFleet([](const Json::Value&, int64_t) -> Json::Value { throw std::runtime_error("no"); }, false),
        std::runtime_error);
    EXPECT_EQ(apply(json("{}")), Lines{"0+ 0~ 0-"});  // the failed revision has left no lock
}

TEST_P(FleetTest, anApplyBesideAWriterLosesNoChange)
{
    apply(json(kFleet));
    const Json::Value jFleet = exported();
    std::atomic<bool> isOver = false;
    std::atomic<int64_t> sets = 0;
    int64_t applied = 0;
    std::jthread writer([&] {
        for (int i = 0; !isOver; ++i) {
            _tag_velq_zem_ou_ group;
            if (VELQZEMOuGet(4, &group) == 0) {
                group.desc = std::to_string(i);
                sets += VELQZEMOuSet(&group) == 0;
            }
        }
    });
    // On a busy machine one of the two may not have written after fifty rounds.
    for (int i = 0; i < 50 || (i < 5000 && (sets == 0 || applied == 0)); ++i) {
        const std::string counts = apply(jFleet, kPrune).back();
        applied += counts == "0+ 1~ 0-";
        EXPECT_TRUE(counts == "0+ 1~ 0-" || counts == "0+ 0~ 0-") << counts;
    }
    isOver = true;
    writer.join();
    EXPECT_GT(sets, 0);
    EXPECT_GT(applied, 0);
    EXPECT_EQ(revisionOf("groups", 4), 1 + sets + applied);
}

TEST(FleetFile, isPlannedEvenWithoutAStore)
{
    const test::TempFolder folder;
    VELQZEMStoreOpen("sqlite:" + folder.path + "/store.db", store::OpenMode::ifThere);
    EXPECT_EQ(apply(json(kFleet), kDryPrune).back(), "11+ 0~ 0-");
    EXPECT_EQ(apply(json("{}"), kDryPrune), Lines{"accounts: none is an administrator"});
    EXPECT_EQ(apply(json(kFleet)), Lines{"no store is open"});
    EXPECT_TRUE(std::filesystem::is_empty(folder.path));
}

}  // namespace
