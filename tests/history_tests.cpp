// Tests the history: what each change leaves, who sees what of it, its pages and its pruning.
#include <ctime>
#include <thread>

#include "platform/velq_zem.h"
#include "tests/temp_database.h"

namespace {

using test::json;

// Group 3 is ann's, and so are server 5 and policy 1 in it. Bob's group has a name with a slash.
constexpr const char* kFleet =
    "{'accounts':[{'uid':1,'name':'admin','admin':true},{'uid':2,'name':'ann'},{'uid':3,'name':'bob'}],"
    " 'groups':[{'id':1,'parent_id':0,'name':'HQ'},{'id':2,'parent_id':1,'name':'a/b',"
    "  'delegate':[{'ugid':3,'user_type':2}]},"
    "  {'id':3,'parent_id':2,'name':'Web','delegate':[{'ugid':2,'user_type':2}]},"
    "  {'id':4,'parent_id':3,'name':'Sub','delegate':[{'ugid':3,'user_type':2}]}],"
    " 'policies':[{'id':1,'parent_id':3,'name':'p1'},{'id':2,'parent_id':1,'name':'p2'}],"
    " 'servers':[{'id':5,'parent_id':4,'name':'s5','address':'old'},{'id':6,'parent_id':1,'name':'s6'}]}";

Json::Value page(const store::HistoryFilter& filter = {}, std::optional<uint32_t> uid = std::nullopt)
{
    const auto found = store::readHistory(uid, filter);
    return found ? *found : Json::Value("refused");
}

// A change on one line: "ann changed group 3 HQ/Web: name Old>New".
std::string shown(const Json::Value& jChange)
{
    std::string text = jChange.isMember("account") ? jChange["account"].asString()
                       : jChange.isMember("uid")   ? "uid=" + jChange["uid"].asString()
                                                   : "(" + jChange["command"].asString() + ")";
    text += " " + jChange["action"].asString() + " " + jChange["kind"].asString() + " " + jChange["id"].asString() +
            " " + jChange["path"].asString();
    for (const Json::Value& jMember : jChange["members"]) {
        text += ", " + jMember["member"].asString() + " " + jMember["before"].asString() + ">" +
                jMember["after"].asString() + (jMember["cut"].asBool() ? " cut" : "");
    }
    return text;
}

std::vector<std::string> lines(const store::HistoryFilter& filter = {}, std::optional<uint32_t> uid = std::nullopt)
{
    std::vector<std::string> found;
    const Json::Value jPage = page(filter, uid);
    for (const Json::Value& jChange : jPage["changes"]) {
        found.push_back(shown(jChange));
    }
    return found;
}

void set(uint32_t uid, int64_t id, const std::string& text)
{
    const store::ActingAccount caller(uid);
    Json::Value jRecord = json(text);
    _tag_velq_zem_ou_* pOu = VELQZEMOuAlloc();
    ASSERT_EQ(VELQZEMOuGet(id, pOu), 0);
    ASSERT_EQ(VELQZEMOuJsonToStruct(jRecord, pOu), 0);
    ASSERT_EQ(VELQZEMOuSet(pOu), 0);
    ASSERT_EQ(VELQZEMDelegateSetListByTarget(id, VELQ_ZEM_TYPE_OU, jRecord), 0);
    VELQZEMOuFree(pOu);
}

class HistoryTest : public test::DatabaseTest {
protected:
    void prepare() final
    {
        store::setCommand("apply");
        openNewStore(json(kFleet));
        store::setCommand("link");
        runSql("DELETE FROM history");
    }
};

INSTANTIATE_TEST_SUITE_P(Databases, HistoryTest, testing::ValuesIn(test::kDatabases));

TEST_P(HistoryTest, eachChangeLeavesItsRow)
{
    set(2, 3, "{'name':'New','block_inheritance':true,'linked_gpo':{'order':[{'id':1}]},'delegate':null}");
    set(1, 3, "{'parent_id':1,'delegate':[]}");
    set(1, 3, "{'name':'New'}");  // changes nothing
    {
        const store::ActingAccount caller(1);
        _tag_velq_zem_ou_* pOu = VELQZEMOuAlloc();
        Json::Value jRecord = json("{'name':'made','parent_id':2,'desc':'d'}");
        ASSERT_EQ(VELQZEMOuJsonToStruct(jRecord, pOu), 0);
        ASSERT_EQ(VELQZEMOuCreate(pOu), 0);
        ASSERT_EQ(VELQZEMOuSet(pOu), 0);  // changes nothing
        VELQZEMOuFree(pOu);
    }
    _tag_velq_zem_kx_* pKx = VELQZEMKxAlloc();
    Json::Value jServer = json("{'address':'new','linked_gpo':{'order':[{'id':2,'on':true}]}}");
    ASSERT_EQ(VELQZEMKxGet(5, pKx), 0);
    ASSERT_EQ(VELQZEMKxJsonToStruct(jServer, pKx), 0);
    ASSERT_EQ(VELQZEMKxSet(pKx), 0);
    VELQZEMKxFree(pKx);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(99), -1);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(3), 0);
    // The rows of one commit come the last first, the changes of a row in the order of the identifiers.
    const std::vector<std::string> expected = {
        "(link) changed server 5 s5, parent_id 4>0",
        "(link) changed policy 1 p1, parent_id 3>0",
        "(link) deleted group 3 HQ/New, parent_id 1>, block_inheritance true>, linked_gpo 1>",
        "(link) deleted group 4 HQ/New/Sub, parent_id 3>, delegate 3>",
        "(link) changed server 5 HQ/New/Sub/s5, address old>new, linked_gpo >{\"order\":[{\"id\":2,\"on\":true}]}",
        "admin created group 5 HQ/a\\/b/made, parent_id >2, desc >d",
        "admin changed group 3 HQ/New, delegate 2>",
        "admin changed group 3 HQ/New, parent_id 2>1",
        "ann changed group 3 HQ/a\\/b/New, name Web>New, block_inheritance false>true, linked_gpo >1"};
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(lines({.node = "server:5"}), (std::vector<std::string>{expected[0], expected[4]}));
    EXPECT_EQ(lines({.by = "ann"}), std::vector<std::string>{expected[8]});
    EXPECT_EQ(lines({.by = "uid=1"}).size(), 3u);
    EXPECT_EQ(lines({.since = std::time(nullptr) + 60}).size(), 0u);
    EXPECT_THROW(page({.node = "group"}), std::invalid_argument);
    EXPECT_THROW(page({.before = "1"}), std::invalid_argument);
    for (const char* szSpoilt : {"", "x", "{}", "[1]", "[[\"x\"]]", "[[3,\"n\",\"changed\",[[]]]]"}) {
        runSql(std::string("UPDATE history SET changes = '") + szSpoilt + "' WHERE uid < 0");
        EXPECT_EQ(lines(), std::vector<std::string>(expected.begin() + 5, expected.end())) << szSpoilt;
    }
}

TEST_P(HistoryTest, aChangeWithoutItsRowIsNotMade)
{
    const auto stored = [this] { return rows("SELECT name || linked_gpo || CAST(revision AS TEXT) FROM ou"); };
    const auto before = stored();
    Json::Value jFleet = json(kFleet);
    jFleet["groups"][1]["name"] = "c";
    _tag_velq_zem_ou_* pOu = VELQZEMOuAlloc();
    Json::Value jRecord = json("{'name':'New'}"), jDelegates = json("{'delegate':[]}");
    ASSERT_EQ(VELQZEMOuGet(3, pOu), 0);
    ASSERT_EQ(VELQZEMOuJsonToStruct(jRecord, pOu), 0);
    runSql("ALTER TABLE history RENAME TO away");
    EXPECT_EQ(VELQZEMOuSet(pOu), -1);
    EXPECT_EQ(VELQZEMOuCreate(pOu), -1);
    EXPECT_EQ(VELQZEMDelegateSetListByTarget(3, VELQ_ZEM_TYPE_OU, jDelegates), -1);
    EXPECT_EQ(VELQZEMOuDeleteAllByID(3), -1);
    EXPECT_THROW(store::applyFleet(jFleet, {}), std::runtime_error);
    runSql("ALTER TABLE away RENAME TO history");
    VELQZEMOuFree(pOu);
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(rows("SELECT 'delegate' FROM delegate").size(), 3u);
}

TEST_P(HistoryTest, anApplyLeavesWhatItChanges)
{
    Json::Value jFleet = json(kFleet);
    const std::string text(1500, 'x');
    jFleet["accounts"][1]["admin"] = true;
    jFleet["accounts"].resize(2);  // bob goes
    jFleet["groups"].resize(3);
    jFleet["groups"][1]["name"] = "c";
    jFleet["groups"][1].removeMember("delegate");
    jFleet["groups"][2]["desc"] = text + "\u20ac";
    jFleet["policies"][1]["desc"] = "d";
    jFleet["servers"][0]["parent_id"] = 3;
    jFleet["servers"].append(json("{'id':64,'parent_id':2,'name':'s64'}"));
    const auto before = store::storeState();
    store::applyFleet(jFleet, {.dryRun = false, .prune = true});
    EXPECT_TRUE(before.empty() || before != store::storeState());
    EXPECT_EQ(
        lines(),
        (std::vector<std::string>{
            "(link) created server 64 HQ/c/s64, parent_id >2", "(link) changed server 5 HQ/c/Web/s5, parent_id 4>3",
            "(link) changed policy 2 HQ/p2, desc >d", "(link) changed group 2 HQ/c, name a/b>c, delegate 3>",
            "(link) changed group 3 HQ/c/Web, desc >" + text.substr(0, 1024) + "... cut",
            "(link) deleted group 4 HQ/a\\/b/Web/Sub, parent_id 3>, delegate 3>",
            "(link) changed account 2 ann, admin false>true", "(link) deleted account 3 bob"}));
    EXPECT_EQ(lines({.node = "group:3"}).size(), 1u);  // out of a row of several
    jFleet["groups"][2]["desc"] = text + "!";
    store::applyFleet(jFleet, {});
    const std::string same = "..." + std::string(20, 'x');
    EXPECT_EQ(lines({.node = "group:3"})[0],
              "(link) changed group 3 HQ/c/Web, desc " + same + "\u20ac>" + same + "! cut");
    store::applyFleet(jFleet, {});
    EXPECT_EQ(lines().size(), 9u);
}

TEST_P(HistoryTest, showsAnAccountNothingOutsideItsGroups)
{
    set(1, 3, "{'desc':'one'}");
    set(3, 4, "{'desc':'two'}");
    const std::string refused = "refused";
    struct Row {
        uint32_t uid;
        const char* szNode;
        std::string expected;  // the paths of the changes
    };
    const Row rows[] = {
        {1, "", "HQ/a\\/b/Web/Sub HQ/a\\/b/Web "},
        {2, "", refused},
        {9, "", refused},
        {1, "group:3", "HQ/a\\/b/Web "},
        {2, "group:3", "Web "},      // ann's
        {2, "group:4", "Web/Sub "},  // below it
        {2, "group:2", refused},     // above it
        {2, "group:99", refused},    // alike whether it exists
        {1, "group:99", ""},
        {3, "group:4", "a\\/b/Web/Sub "},
        {9, "group:3", refused},  // no account
        {2, "server:5", ""},
        {2, "server:6", refused},
        {2, "server:99", refused},
        {2, "policy:1", ""},
        {2, "policy:2", refused},
        {2, "account:2", refused},
        {1, "account:2", ""},
    };
    for (const Row& row : rows) {
        const Json::Value jPage = page({.node = row.szNode}, row.uid);
        std::string paths = jPage.isString() ? refused : "";
        for (const Json::Value& jChange : jPage.isString() ? Json::Value() : jPage["changes"]) {
            paths += jChange["path"].asString() + " ";
        }
        EXPECT_EQ(paths, row.expected) << row.uid << " " << row.szNode;
    }
    set(1, 4, "{'parent_id':0}");
    EXPECT_EQ(lines({.node = "group:4"}, 3),
              (std::vector<std::string>{"admin changed group 4 Sub, parent_id 3>0",
                                        "bob changed group 4 a\\/b/Web/Sub, desc >two"}));
    set(1, 2, "{'delegate':[]}");  // the groups above are no longer bob's
    runSql("DELETE FROM account WHERE uid = 1");
    EXPECT_EQ(lines({.node = "group:4"}, 3), (std::vector<std::string>{"uid=1 changed group 4 Sub, parent_id 3>0",
                                                                       "bob changed group 4 Sub, desc >two"}));
}

TEST_P(HistoryTest, pagesStayWhileRowsComeAndGo)
{
    Json::Value jFleet = json(kFleet);
    for (int id = 100; id < 240; ++id) {
        jFleet["servers"].append(
            json("{'id':%,'parent_id':%,'name':'n','linked_gpo':{'order':[{'id':2}]}}", id, id % 50 == 0 ? 2 : 1));
    }
    store::applyFleet(jFleet, {});
    for (int i = 0; i < 4; ++i) {
        set(1, 3, i % 2 == 0 ? "{'desc':'x'}" : "{'desc':'y'}");
    }
    std::multiset<int64_t> ids;
    store::HistoryFilter filter;
    for (int pages = 1; pages <= 3; ++pages) {
        const Json::Value jPage = page(filter);
        for (const Json::Value& jChange : jPage["changes"]) {
            const int64_t id = jChange["id"].asInt64();
            ids.insert(id);
            EXPECT_EQ(jChange["path"], id == 3 ? "HQ/a\\/b/Web" : id % 50 == 0 ? "HQ/a\\/b/n" : "HQ/n") << id;
        }
        EXPECT_EQ(jPage["changes"].size(), pages < 3 ? 50u : 44u);
        EXPECT_EQ(jPage["next"].isNull(), pages == 3);
        filter.before = jPage["next"].asString();
        set(1, 3, pages % 2 == 0 ? "{'desc':'x'}" : "{'desc':'z'}");
    }
    EXPECT_EQ(ids.count(3), 4u);
    EXPECT_EQ(std::set<int64_t>(ids.begin(), ids.end()).size(), 141u);
    store::applyFleet(json(kFleet), {.dryRun = false, .prune = true});
    EXPECT_EQ(rows("SELECT CAST(id AS TEXT) FROM kx"), (std::multiset<std::string>{"5", "6"}));
    EXPECT_EQ(rows("SELECT CAST(node_id AS TEXT) FROM policy_link").size(), 0u);
}

TEST_P(HistoryTest, isPrunedInStepsWhileOthersWrite)
{
    const auto count = [this](const char* szWhere) {
        return rows(std::string("SELECT 'row' FROM history WHERE ") + szWhere).size();
    };
    const auto waitUntil = [](auto&& isTrue) {
        for (int i = 0; i < 2000 && !isTrue(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return isTrue();
    };
    for (int i = 0; i < 250; ++i) {
        set(1, 3, "{'desc':'" + std::to_string(i) + "'}");
    }
    runSql("UPDATE history SET time = time - 2 * 86400 WHERE number <= (SELECT MAX(number) FROM history) - 30");
    store::keepHistory(1);
    set(1, 3, "{'desc':'last'}");
    EXPECT_TRUE(waitUntil([&] { return count("1 = 1") == 31; }));
    VELQZEMStoreClose();
    VELQZEMStoreOpen(url());
    store::keepHistory(0);
    set(1, 3, "{'desc':'unrecorded'}");
    EXPECT_TRUE(waitUntil([&] { return count("1 = 1") == 0; }));
    store::keepHistory(1);
    set(1, 3, "{'desc':'recorded'}");
    EXPECT_EQ(lines(), std::vector<std::string>{"admin changed group 3 HQ/a\\/b/Web, desc unrecorded>recorded"});
}

}  // namespace
