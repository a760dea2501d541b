// The node store on a real database: SQLite in a fresh folder, and PostgreSQL when ZEM_TEST_POSTGRESQL names one.
#include <gtest/gtest.h>

#include <thread>

#include "platform/velq_zem.h"
#include "standin/store/statement.h"
#include "standin/store/store.h"
#include "standin/store/transaction.h"
#include "tests/support.h"

using test::json;

namespace {

constexpr const char* kFleet = R"({
  "accounts": [{"uid":1,"name":"admin","admin":true}, {"uid":2,"name":"helper","admin":false,"domain_name":"corp"},
               {"uid":3,"name":"other","admin":false}, {"uid":4,"name":"rooted","admin":false}],
  "groups": [{"id":3,"parent_id":2,"name":"c"}, {"id":1,"parent_id":0,"name":"a","desc":"top"},
             {"id":2,"parent_id":1,"name":"b","linked_gpo":{"order":[{"id":1,"on":true}],"kept":7},
              "delegate":[{"ugid":2,"user_type":2},{"ugid":1,"user_type":2}]}, {"id":4,"parent_id":0,"name":"d"}],
  "policies": [{"id":1,"name":"p1","parent_id":0,"setting":{"version":1}}, {"id":2,"name":"p2","parent_id":3},
               {"id":3,"name":"p3","parent_id":4}],
  "servers": [{"id":1,"parent_id":3,"name":"s1","address":"x","sid":"S"}, {"id":2,"parent_id":0,"name":"s2"},
              {"id":3,"parent_id":4,"name":"s3","linked_gpo":{"order":[{"id":3}]},
               "delegate":[{"ugid":3,"user_type":2}]}]})";

using Hash = std::unique_ptr<VLIBCSzHash, decltype([](VLIBCSzHash* pHash) { VLIBCSzHashFree(pHash); })>;

Hash hashOf(const Json::Value& jQuery)
{
    VLIBCSzHash* pHash = VLIBCSzHashAlloc(8);
    for (const std::string& key : jQuery.getMemberNames()) {
        VLIBCSzHashSetValue(&pHash, key.c_str(), jQuery[key].asCString());
    }
    return Hash(pHash);
}

struct Tree {
    explicit Tree(int uid)
    {
        const Hash pHash = hashOf(json("{'user_type':'8','ugid':'%'}", uid));
        EXPECT_EQ(VELQZEMListTreeByUidHash(pHash.get(), &pOu, &pKx, &pGpo), 0);
    }
    ~Tree()
    {
        release();
    }
    void release()
    {
        VELQZEMOuListFree(&pOu);
        VELQZEMKxListFree(&pKx);
        VELQZEMGpoListFree(&pGpo);
    }
    _tag_velq_zem_ou_* pOu = nullptr;
    _tag_velq_zem_kx_* pKx = nullptr;
    _tag_velq_zem_gpo_* pGpo = nullptr;
};

Json::Value delegatesOf(int64_t id, int nodeType)
{
    _tag_velq_zem_delegate_* pItem = nullptr;
    EXPECT_EQ(VELQZEMDelegateListByTarget(id, nodeType, &pItem, nullptr), 0);
    EXPECT_EQ(VELQDelegateUpdateExtraInfoList(pItem, TRUE), 0);
    Json::Value jList(Json::arrayValue);
    for (; pItem != nullptr; pItem = VELQZEMDelegateNext(pItem)) {
        uint64_t ugid = 0;
        EXPECT_EQ(VELQZEMDelegateItemGetUGID(&ugid, pItem), 0);
        jList.append(std::to_string(ugid) + pItem->extraInfo.c_str());
    }
    return jList;
}

// The records of a list as JSON with their delegates.
template <typename Record, typename Convert>
Json::Value nodes(const Record* pHead, Convert convert)
{
    Json::Value jList(Json::arrayValue);
    for (const void* p = pHead; p != nullptr; p = *static_cast<void* const*>(p)) {
        Json::Value& jNode = jList.append(Json::Value());
        EXPECT_EQ(convert(static_cast<const Record*>(p), Json::Value(), jNode), 0);
        jNode["delegates"] = delegatesOf(jNode["id"].asInt64(), jNode["node_type"].asInt());
    }
    return jList;
}

_tag_velq_zem_ou_ group(int64_t id)
{
    _tag_velq_zem_ou_ record;
    EXPECT_EQ(VELQZEMOuGet(id, &record), 0);
    return record;
}

Json::Value dump(int uid = 1)
{
    const Tree tree(uid);
    const _tag_velq_zem_ou_ root = group(0);
    Json::Value jAll;
    jAll["root"] = nodes(&root, VELQZEMOuStructToJson);
    jAll["groups"] = nodes(tree.pOu, VELQZEMOuStructToJson);
    jAll["servers"] = nodes(tree.pKx, VELQZEMKxStructToJson);
    jAll["policies"] = nodes(tree.pGpo, VELQZEMGpoStructToJson);
    return jAll;
}

// What the account sees, by identifiers: groups, servers, policies.
std::string seenBy(int uid)
{
    const Json::Value jAll = dump(uid);
    std::string text;
    for (const char* szKind : {"groups", "servers", "policies"}) {
        for (const Json::Value& jNode : jAll[szKind]) {
            text += jNode["id"].asString() + " ";
        }
        text += "/ ";
    }
    return text;
}

int orErrno(int result)
{
    return result < 0 ? errno : 0;
}

// Changes of the group or server, of its delegates, or a new group below it. Each gives 0 or the errno value of the
// first call that failed.
using Change = int(int64_t id, const std::string& text);

int set(int64_t id, const std::string& text)
{
    Json::Value jRecord = json(text);
    _tag_velq_zem_ou_ record = group(id);
    return orErrno(VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuSet(&record));
}

int64_t gCreated = 0;

int create(int64_t parentId, const std::string& text)
{
    Json::Value jRecord = json(text);
    jRecord["parent_id"] = Json::Value(parentId);
    _tag_velq_zem_ou_ record;
    const int result = orErrno(VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuCreate(&record));
    EXPECT_EQ(VELQZEMOuItemGetID(&gCreated, &record), 0);
    return result;
}

int setServer(int64_t id, const std::string& text)
{
    Json::Value jRecord = json(text);
    _tag_velq_zem_kx_* pKx = VELQZEMKxAlloc();
    const bool ready = VELQZEMKxGet(id, pKx) == 0 && VELQZEMKxJsonToStruct(jRecord, pKx) == 0;
    const int result = orErrno(ready ? VELQZEMKxSet(pKx) : -1);
    VELQZEMKxFree(pKx);
    return result;
}

template <int nodeType>
int setDelegates(int64_t id, const std::string& text)
{
    Json::Value jRecord;
    jRecord["delegate"] = json(text);
    return orErrno(VELQZEMDelegateSetListByTarget(id, nodeType, jRecord));
}

int deleteAll(int64_t id, const std::string&)
{
    return orErrno(VELQZEMOuDeleteAllByID(id));
}

int notify(int64_t id, const std::string&)
{
    return orErrno(VELQZEMGpoNotifyFetch(1, 2, id));
}

// In one transaction.
template <typename... Texts>
void runSql(const Texts&... statements)
{
    standin::Transaction transaction(standin::Access::write);
    (standin::execute(transaction.sql(), statements), ...);
    transaction.commit();
}

void emptyStore()
{
    for (const char* szTable : {"kx", "gpo", "ou WHERE id <> 0", "account", "delegate"}) {
        runSql(std::string("DELETE FROM ") + szTable);
    }
}

class StoreTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        const char* szServer = std::getenv("ZEM_TEST_POSTGRESQL");
        if (std::string("sqlite") == GetParam()) {
            m_url = "sqlite:" + m_folder.path + "/a store.db";
        } else if (szServer == nullptr) {
            GTEST_SKIP() << "ZEM_TEST_POSTGRESQL is not set";
        } else {
            m_url = szServer;
            VELQZEMStoreOpen(m_url);
            runSql("DROP SCHEMA public CASCADE", "CREATE SCHEMA public");
        }
        VELQZEMStoreOpen(m_url);
        standin::loadFleet(json(kFleet), {});
    }
    void TearDown() override
    {
        VELQZEMStoreClose();
    }
    const test::TempFolder m_folder;
    std::string m_url;
};

INSTANTIATE_TEST_SUITE_P(Databases, StoreTest, testing::Values("sqlite", "postgresql"));

TEST_P(StoreTest, refusalsChangeNothing)
{
    _tag_velq_zem_ou_ stale = group(2);
    ASSERT_EQ(set(2, "{'desc':'newer'}"), 0);
    _tag_velq_zem_ou_ bytes = group(4);
    const Json::Value jBefore = dump();
    const std::tuple<const char*, int, Change*, int64_t, const char*> cases[] = {
        {"the root moves", EINVAL, set, 0, "{'parent_id':1}"},
        {"below itself", EINVAL, set, 1, "{'parent_id':1}"},
        {"below its sub-group", EINVAL, set, 1, "{'parent_id':3}"},
        {"no such parent", ENOENT, set, 2, "{'parent_id':9}"},
        {"another's identifier", ENOENT, set, 2, "{'id':9}"},
        {"a sibling's name", EEXIST, set, 1, "{'name':'d'}"},
        {"no name", EINVAL, set, 2, "{'name':''}"},
        {"a NUL", EINVAL, set, 2, "{'name':'\\u0000'}"},
        {"a number as text", EINVAL, set, 2, "{'desc':5}"},
        {"a text as number", EINVAL, set, 2, "{'parent_id':'1'}"},
        {"neither 0 nor 1", EINVAL, set, 2, "{'block_inheritance':2}"},
        {"no record", EINVAL, set, 2, "[]"},
        {"links in an array", EINVAL, set, 2, "{'linked_gpo':[]}"},
        {"a text as policy", EINVAL, set, 2, "{'linked_gpo':{'order':[{'id':'1'}]}}"},
        {"an object as order", EINVAL, set, 2, "{'linked_gpo':{'order':{}}}"},
        {"an unknown policy", EINVAL, set, 2, "{'linked_gpo':{'order':[{'id':9}]}}"},
        {"a policy linked twice", EINVAL, set, 2, "{'linked_gpo':{'order':[{'id':1},{'id':1}]}}"},
        {"no such parent", ENOENT, create, 9, "{'name':'n'}"},
        {"a sibling's name", EEXIST, create, 1, "{'name':'b'}"},
        {"no name", EINVAL, create, 1, "{}"},
        {"the root is deleted", EINVAL, deleteAll, 0, ""},
        {"no such group", ENOENT, deleteAll, 9, ""},
        {"no such parent", ENOENT, setServer, 1, "{'parent_id':9}"},
        {"an unknown policy", EINVAL, setServer, 1, "{'linked_gpo':{'order':[{'id':9}]}}"},
        {"no delegates", EINVAL, setDelegates<2>, 2, "5"},
        {"no delegate", EINVAL, setDelegates<2>, 2, "[5]"},
        {"an unknown account", EINVAL, setDelegates<2>, 2, "[{'ugid':9,'user_type':2}]"},
        {"an unknown type", EINVAL, setDelegates<2>, 2, "[{'ugid':2,'user_type':3}]"},
        {"named twice", EINVAL, setDelegates<2>, 2, "[{'ugid':2,'user_type':2},{'ugid':2,'user_type':2}]"},
        {"no such group", ENOENT, setDelegates<2>, 9, "[]"},
        {"a policy's delegates", EINVAL, setDelegates<4>, 1, "[]"},
        {"no such group", ENOENT, notify, 9, ""},
    };
    for (const auto& [szFault, code, change, id, szRecord] : cases) {
        EXPECT_EQ(change(id, szRecord), code) << szFault << ": " << szRecord;
    }
    EXPECT_EQ(orErrno(VELQZEMOuSet(&stale)), EAGAIN);
    for (const char* szNotUtf8 :
         {"\xc3(", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82"}) {
        bytes.name = szNotUtf8;
        EXPECT_EQ(orErrno(VELQZEMOuSet(&bytes)), EINVAL);
    }
    EXPECT_EQ(dump(), jBefore);
}

TEST_P(StoreTest, groupsNestToTheLimitAlsoWhenMoved)
{
    gCreated = 0;
    for (int level = 1; level <= standin::kMaxGroupDepth; ++level) {
        ASSERT_EQ(create(gCreated, "{'name':'deep'}"), 0);
    }
    const std::string toLastButOne = "{'parent_id':" + std::to_string(group(gCreated).parentId) + "}";
    EXPECT_EQ(create(gCreated, "{'name':'n'}"), EINVAL);
    EXPECT_EQ(set(2, toLastButOne), EINVAL);  // it has a sub-group
    EXPECT_EQ(set(3, toLastButOne), 0);
}

// Who sees and may change what is compared with a model in threads_tests; here is what that does not have.
TEST_P(StoreTest, rightsReachFromTheRootDownAndRefusalsSayWhy)
{
    ASSERT_EQ(setDelegates<2>(0, "[{'ugid':4,'user_type':2}]"), 0);
    EXPECT_EQ(seenBy(1), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_EQ(seenBy(2), "2 3 / 1 / 1 2 / ");
    EXPECT_EQ(dump(2)["groups"][0], dump()["groups"][1]);  // with the same delegates and their names
    EXPECT_EQ(seenBy(4), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_NE(VELQZEMOuCanManagedByUid(1, 9), 0);  // any identifier
    EXPECT_NE(VELQZEMOuCanManagedByUid(4, 0), 0);
    EXPECT_EQ(VELQZEMOuCanManagedByUid(4, 9), 0);
    EXPECT_EQ(VELQZEMOuCanManagedByUid(3, 2), 0);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(VLIBCErrGet(), 0x0D01);
    EXPECT_STREQ(VLIBCErrorGetFile(), "rights.cpp");
    const Json::Value jNames = delegatesOf(2, 2);
    EXPECT_EQ(jNames[0], R"(2{"domainName":"corp","domainType":"local","userNameCache":"helper"})");
    EXPECT_EQ(jNames[1], R"(1{"domainName":"","domainType":"local","userNameCache":"admin"})");
    runSql("DELETE FROM account WHERE uid = 2");
    EXPECT_EQ(seenBy(2), "/ / / ");
    EXPECT_EQ(delegatesOf(2, 2)[0], "2");  // its extra information is gone
}

TEST_P(StoreTest, deletionMovesServersAndPoliciesToTheRoot)
{
    ASSERT_EQ(VELQZEMGpoNotifyFetch(1, 2, 3), 0);
    ASSERT_EQ(VELQZEMGpoNotifyFetch(2, 2, 3), 0);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(1), 0);
    EXPECT_EQ(seenBy(1), "4 / 1 2 3 / 1 2 3 / ");
    const Json::Value jAll = dump();
    for (const Json::Value& jMoved : {jAll["servers"][0], jAll["policies"][1]}) {
        EXPECT_EQ(jMoved["parent_id"], 0);
        EXPECT_EQ(jMoved["revision"], 2);
    }
    EXPECT_EQ(delegatesOf(2, 2).size(), 0u);
    EXPECT_EQ(delegatesOf(3, 3).size(), 1u);
    runSql("INSERT INTO gpo_fetch VALUES (2, 3, 1, 1)");  // the notice of the deleted group is gone
}

TEST_P(StoreTest, linksAndSettingsAreConverted)
{
    const std::tuple<const char*, int, const char*> forms[] = {
        {"[{'id':5}]", 0, "{'order':[{'id':5}]}"},
        {"{'order':[{'id':5}],'x':1}", 0, "{'order':[{'id':5}],'x':1}"},
        {"'text'", EINVAL, "'text'"}};
    for (const auto& [szValue, code, szLinks] : forms) {
        Json::Value jRecord;
        EXPECT_EQ(orErrno(VELQZEMHttpReqToJsonForLinkedGpo(json(szValue), jRecord)), code) << szValue;
        EXPECT_EQ(jRecord["linked_gpo"], json(szLinks));
    }
    for (const char* szNone : {"null", "{}", "{'order':[]}"}) {
        ASSERT_EQ(set(2, "{'linked_gpo':{'order':[{'id':1}]}}"), 0);
        ASSERT_EQ(set(2, std::string("{'linked_gpo':") + szNone + "}"), 0);
        EXPECT_TRUE(group(2).linkedGpo.empty()) << szNone;
    }
    const std::tuple<const char*, const char*, const char*> settings[] = {
        {"{'version':1,'a':2}", "{'major':3}", "{'version':3,'a':2}"},
        {"{'version':4}", "{'major':3}", "{'version':4}"},
        {"{}", "{'major':3}", nullptr},
        {"{'version':1}", "5", nullptr},
        {"[]", "{'major':3}", nullptr}};
    for (const auto& [szSetting, szInterface, szExpected] : settings) {
        Json::Value jSetting = json(szSetting), jInterface = json(szInterface);
        EXPECT_EQ(orErrno(VELQZEMGpoGetWithVersionConvert(jSetting, jInterface)), szExpected ? 0 : EINVAL);
        EXPECT_EQ(jSetting, json(szExpected ? szExpected : szSetting)) << szSetting;
    }
    Json::Value jOnly;
    const _tag_velq_zem_ou_ record = group(1);
    ASSERT_EQ(VELQZEMOuStructToJson(&record, json("['name','node_type']"), jOnly), 0);
    EXPECT_EQ(jOnly, json("{'name':'a','node_type':2}"));
}

TEST_P(StoreTest, oneLevelIsFilteredThenSortedThenCut)
{
    for (const char* szName : {"B", "e", "D"}) {
        ASSERT_EQ(create(0, std::string("{'name':'") + szName + "'}"), 0);
    }
    const std::tuple<const char*, const char*, int> pages[] = {
        {"{'ugid':'1','user_type':'8'}", "a d B e D ", 5},
        {"{'ugid':'1','user_type':'8','sort_by':'name'}", "B D a d e ", 5},
        {"{'ugid':'1','user_type':'8','sort_by':'name','sort_direction':'desc','offset':'1','limit':'2'}", "d a ", 5},
        {"{'ugid':'1','user_type':'8','offset':'9223372036854775807','limit':'1'}", "", 5},
        {"{'ugid':'2','user_type':'8'}", "b ", 1},
        {"{'ugid':'1'}", "", 0},
        {"{}", "", 0}};
    for (const auto& [szQuery, names, expectedTotal] : pages) {
        _tag_velq_zem_ou_* pHead = nullptr;
        int total = -1, count = -1;
        ASSERT_EQ(VELQZEMListOneLevelByUidHash(hashOf(json(szQuery)).get(), &pHead, &total, &count), 0) << szQuery;
        std::string found;
        for (const _tag_velq_zem_ou_* p = pHead; p != nullptr; p = p->pNext, --count) {
            found += std::string(p->name.c_str()) + " ";
        }
        EXPECT_EQ(found, names) << szQuery;
        EXPECT_EQ(total, expectedTotal) << szQuery;
        EXPECT_EQ(count, 0) << szQuery;
        VELQZEMOuListFree(&pHead);
    }
    for (const char* szQuery :
         {"{'offset':'-1'}", "{'limit':'0'}", "{'limit':'1x'}", "{'limit':''}", "{'sort_by':'desc'}",
          "{'sort_direction':'up'}", "{'ugid':'4294967296'}", "{'ugid':'+1'}", "{'user_type':'2'}"}) {
        _tag_velq_zem_ou_* pHead = nullptr;
        EXPECT_EQ(orErrno(VELQZEMListOneLevelByUidHash(hashOf(json(szQuery)).get(), &pHead, nullptr, nullptr)), EINVAL);
    }
}

TEST_P(StoreTest, everythingOutlivesReopening)
{
    ASSERT_EQ(create(4, R"({"name":"'; DROP TABLE ou; --","desc":"\" :id ? $1 \u20ac","block_inheritance":true,
                            "extra_info":["\u0000",1.5]})"),
              0);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(3), 0);
    standin::addToken(2, "hash", "", 0);
    const Json::Value jBefore = dump();
    VELQZEMStoreOpen(m_url);
    EXPECT_EQ(dump(), jBefore);
    const Json::Value& jGroups = jBefore["groups"];
    EXPECT_EQ(jGroups[3]["name"], "'; DROP TABLE ou; --");
    EXPECT_EQ(jGroups[3]["desc"], "\" :id ? $1 \u20ac");
    EXPECT_EQ(jGroups[3]["extra_info"], json("['\\u0000',1.5]"));
    EXPECT_EQ(jGroups[1]["linked_gpo"], json("{'order':[{'id':1,'on':true}],'kept':7}"));
    EXPECT_FALSE(jGroups[0].isMember("linked_gpo"));
    EXPECT_EQ(standin::findAccountByToken("hash")->uid, 2u);
    EXPECT_FALSE(standin::findAccountByName("' OR '1'='1").has_value());
    EXPECT_THROW(standin::addToken(77, "x", "", 0), std::runtime_error);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(5), 0);
    ASSERT_EQ(create(0, "{'name':'next'}"), 0);
    EXPECT_EQ(gCreated, 6);  // not that of a deleted group
    runSql("UPDATE meta SET value = 3 WHERE name = 'version'");
    EXPECT_THROW(VELQZEMStoreOpen(m_url), std::runtime_error);
}

TEST_P(StoreTest, fleetErrorsNameTheirPlaceAndStoreNothing)
{
    emptyStore();
    const std::tuple<const char*, int, const char*, const char*> faults[] = {
        {"groups", 1, "{'id':3}", "groups[1].id: a record of the kind before has it too"},
        {"groups", 1, "{'id':0}", "groups[1].id: missing or not from 1 to 2^62 - 1"},
        {"groups", 0, "{'parent_id':99}", "groups[0].parent_id: no group 99"},
        {"groups", 1, "{'parent_id':3}", "groups[0].parent_id: leads round in a circle"},
        {"groups", 2, "{'name':7}", "groups[2].name: not a text"},
        {"groups", 3, "{'name':'a'}", "groups[3].name: a sibling before has it too"},
        {"groups", 2, "{'delegate':[{'ugid':9,'user_type':2}]}", "groups[2].delegate[0].ugid: no account 9"},
        {"servers", 2, "{'linked_gpo':{'order':[{'id':1},{'id':9}]}}",
         "servers[2].linked_gpo.order[1].id: no policy 9"},
        {"servers", 1, "{'parent_id':null}", "servers[1].parent_id: missing"},
        {"policies", 0, "{'setting':{}}", "policies[0].setting.version: not a 32-bit integer"},
        {"accounts", 2, "{'uid':4294967295}", "accounts[2].uid: missing or not from 0 to 4294967294"},
        {"accounts", 1, "{'name':'admin'}", "accounts[1].name: an account before has it too"}};
    const auto messageOf = [](const Json::Value& jFleet) -> std::string {
        try {
            standin::loadFleet(jFleet, {});
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    for (const auto& [szSection, index, szMember, szMessage] : faults) {
        Json::Value jFleet = json(kFleet);
        const Json::Value jMember = json(szMember);
        jFleet[szSection][index][jMember.begin().name()] = *jMember.begin();
        EXPECT_EQ(messageOf(jFleet), szMessage);
    }
    EXPECT_EQ(messageOf(json("{'groups':5}")), "groups: not an array");
    EXPECT_EQ(messageOf(json(kFleet)), "");  // nothing of the others was left
    EXPECT_NE(messageOf(json(kFleet)), "");
}

TEST_P(StoreTest, statementsOfATreeDoNotGrowWithIt)
{
    const auto statements = [] {
        const uint64_t before = standin::statementCount();
        Tree tree(1);
        for (const _tag_velq_zem_ou_* p = tree.pOu; p != nullptr; p = p->pNext) {
            delegatesOf(p->id, 2);
            _tag_velq_zem_gpo_* pGpo = VELQZEMGpoAlloc();
            EXPECT_EQ(VELQZEMGpoGet(1, pGpo), 0);
            VELQZEMGpoFree(pGpo);
        }
        return standin::statementCount() - before;
    };
    const uint64_t few = statements();
    Json::Value jFleet = json(kFleet);
    for (int id = 10; id < 5000; ++id) {
        Json::Value& jGroup = jFleet["groups"].append(jFleet["groups"][2]);
        jGroup["id"] = id;
        jGroup["name"] = std::to_string(id);
    }
    emptyStore();
    standin::loadFleet(jFleet, {});
    EXPECT_EQ(statements(), few);
}

TEST_P(StoreTest, aListedTreeStaysAtItsMomentUntilReleased)
{
    const auto policyName = [] {
        _tag_velq_zem_gpo_* pGpo = VELQZEMGpoAlloc();
        char name[8] = "gone";
        if (VELQZEMGpoGet(1, pGpo) == 0) {
            VELQZEMGpoItemGetName(name, sizeof name, pGpo);
        }
        VELQZEMGpoFree(pGpo);
        return std::string(name);
    };
    Tree tree(1);
    std::thread([&] {
        runSql("UPDATE gpo SET name = 'renam €' WHERE id = 1");
        EXPECT_EQ(setDelegates<2>(2, "[]"), 0);
        EXPECT_EQ(policyName(), "renam ");  // seven bytes are left, the last of them would hold half a character
    }).join();
    EXPECT_EQ(policyName(), "p1");
    EXPECT_EQ(delegatesOf(2, 2).size(), 2u);
    VELQZEMKxListFree(&tree.pKx);
    VELQZEMOuListFree(&tree.pOu);
    EXPECT_EQ(policyName(), "p1");
    tree.release();
    EXPECT_EQ(policyName(), "renam ");
    EXPECT_EQ(delegatesOf(2, 2).size(), 0u);
    Tree second(1);
    ASSERT_EQ(set(2, "{'desc':'x'}"), 0);  // a writer sees the store as it is
    runSql("DELETE FROM gpo WHERE id = 1");
    EXPECT_EQ(policyName(), "gone");
}

}  // namespace
