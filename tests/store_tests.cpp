// The node store on a real database: SQLite in a fresh folder, and PostgreSQL when ZEM_TEST_POSTGRESQL names one.
#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "platform/velq_zem.h"
#include "standin/store/database.h"
#include "standin/store/store.h"

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

Json::Value json(const std::string& text)
{
    Json::Value jValue;
    std::istringstream(text) >> jValue;
    return jValue;
}

struct Hash {
    explicit Hash(const Json::Value& jQuery)
    {
        for (const std::string& key : jQuery.getMemberNames()) {
            VLIBCSzHashSetValue(&pHash, key.c_str(), jQuery[key].asCString());
        }
    }
    ~Hash()
    {
        VLIBCSzHashFree(pHash);
    }
    VLIBCSzHash* pHash = VLIBCSzHashAlloc(8);
};

Hash asking(int uid)
{
    return Hash(json(R"({"user_type":"8","ugid":")" + std::to_string(uid) + "\"}"));
}

struct Tree {
    explicit Tree(int uid)
    {
        result = VELQZEMListTreeByUidHash(asking(uid).pHash, &pOu, &pKx, &pGpo);
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
    int result;
    _tag_velq_zem_ou_* pOu = nullptr;
    _tag_velq_zem_kx_* pKx = nullptr;
    _tag_velq_zem_gpo_* pGpo = nullptr;
};

Json::Value delegatesOf(int64_t id, int nodeType)
{
    _tag_velq_zem_delegate_* pItem = nullptr;
    EXPECT_EQ(0, VELQZEMDelegateListByTarget(id, nodeType, &pItem, nullptr));
    EXPECT_EQ(0, VELQDelegateUpdateExtraInfoList(pItem, TRUE));
    Json::Value jList(Json::arrayValue);
    for (; pItem != nullptr; pItem = VELQZEMDelegateNext(pItem)) {
        uint64_t ugid = 0;
        EXPECT_EQ(0, VELQZEMDelegateItemGetUGID(&ugid, pItem));
        jList.append(std::to_string(ugid) + pItem->extraInfo.c_str());
    }
    return jList;
}

// The records of a list as JSON with their delegates.
template <class R, class Convert>
Json::Value nodes(const R* pHead, Convert convert)
{
    Json::Value jList(Json::arrayValue);
    for (const void* p = pHead; p != nullptr; p = *static_cast<void* const*>(p)) {
        Json::Value& jNode = jList.append(Json::Value());
        EXPECT_EQ(0, convert(static_cast<const R*>(p), Json::Value(), jNode));
        jNode["delegates"] = delegatesOf(jNode["id"].asInt64(), jNode["node_type"].asInt());
    }
    return jList;
}

_tag_velq_zem_ou_ group(int64_t id)
{
    _tag_velq_zem_ou_ record;
    EXPECT_EQ(0, VELQZEMOuGet(id, &record));
    return record;
}

Json::Value dump(int uid = 1)
{
    const Tree tree(uid);
    EXPECT_EQ(0, tree.result);
    Json::Value jAll;
    const _tag_velq_zem_ou_ root = group(0);
    jAll["root"] = nodes(&root, VELQZEMOuStructToJson);
    jAll["groups"] = nodes(tree.pOu, VELQZEMOuStructToJson);
    jAll["servers"] = nodes(tree.pKx, VELQZEMKxStructToJson);
    jAll["policies"] = nodes(tree.pGpo, VELQZEMGpoStructToJson);
    return jAll;
}

std::string ids(const Json::Value& jNodes)
{
    std::string text;
    for (const Json::Value& jNode : jNodes) {
        text += jNode["id"].asString() + " ";
    }
    return text;
}

int orErrno(int result)
{
    return result < 0 ? errno : 0;
}

// Each gives 0 or the errno value of the first call that failed.
int set(int64_t id, const std::string& text)
{
    Json::Value jRecord = json(text);
    _tag_velq_zem_ou_ record = group(id);
    return orErrno(VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuSet(&record));
}

int create(const std::string& text, int64_t* pId = nullptr)
{
    Json::Value jRecord = json(text);
    _tag_velq_zem_ou_ record;
    const int result = VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuCreate(&record);
    return pId != nullptr ? VELQZEMOuItemGetID(pId, &record) : orErrno(result);
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

int setDelegates(int nodeType, int64_t id, const char* szDelegates)
{
    Json::Value jRecord = json(R"({"delegate":)" + std::string(szDelegates) + "}");
    return orErrno(VELQZEMDelegateSetListByTarget(id, nodeType, jRecord));
}

void runSql(const std::string& statement)
{
    standin::Transaction transaction(standin::Access::write);
    standin::execute(transaction.sql(), statement);
    transaction.commit();
}

void emptyStore()
{
    for (const char* szTable : {"kx", "gpo", "ou", "account", "delegate"}) {
        runSql(std::string("DELETE FROM ") + szTable + (std::string("ou") == szTable ? " WHERE id <> 0" : ""));
    }
}

class StoreTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override
    {
        const char* szServer = std::getenv("ZEM_TEST_POSTGRESQL");
        if (std::string("sqlite") == GetParam()) {
            std::string folder = testing::TempDir() + "zem store XXXXXX";
            m_folder = mkdtemp(folder.data());
            m_url = "sqlite:" + m_folder + "/a store.db";
        } else if (szServer == nullptr) {
            GTEST_SKIP() << "ZEM_TEST_POSTGRESQL is not set";
        } else {
            m_url = szServer;
            VELQZEMStoreOpen(m_url);
            standin::Transaction transaction(standin::Access::write);
            standin::execute(transaction.sql(), "DROP SCHEMA public CASCADE");
            standin::execute(transaction.sql(), "CREATE SCHEMA public");
            transaction.commit();
        }
        VELQZEMStoreOpen(m_url);
        standin::loadFleet(json(kFleet), {});
    }
    void TearDown() override
    {
        VELQZEMStoreClose();
        if (!m_folder.empty()) {
            std::filesystem::remove_all(m_folder);
        }
    }
    std::string m_folder;
    std::string m_url;
};

INSTANTIATE_TEST_SUITE_P(Databases, StoreTest, testing::Values("sqlite", "postgresql"));

TEST_P(StoreTest, RefusalsChangeNothing)
{
    _tag_velq_zem_ou_ stale = group(2);
    ASSERT_EQ(0, set(2, R"({"desc":"newer"})"));
    _tag_velq_zem_ou_ bytes = group(4);
    const Json::Value jBefore = dump();
    const std::tuple<int, int64_t, const char*> changes[] = {
        {EINVAL, 0, R"({"parent_id":1})"},
        {EINVAL, 1, R"({"parent_id":1})"},
        {EINVAL, 1, R"({"parent_id":3})"},
        {ENOENT, 2, R"({"parent_id":9})"},
        {ENOENT, 2, R"({"id":9})"},
        {EEXIST, 1, R"({"name":"d"})"},
        {EINVAL, 2, R"({"name":""})"},
        {EINVAL, 2, R"({"name":"\u0000"})"},
        {EINVAL, 2, R"({"desc":5})"},
        {EINVAL, 2, R"({"parent_id":"1"})"},
        {EINVAL, 2, R"({"block_inheritance":2})"},
        {EINVAL, 2, "[]"},
        {EINVAL, 2, R"({"linked_gpo":[]})"},
        {EINVAL, 2, R"({"linked_gpo":{"order":[{"id":"1"}]}})"},
        {EINVAL, 2, R"({"linked_gpo":{"order":{}}})"},
        {EINVAL, 2, R"({"linked_gpo":{"order":[{"id":9}]}})"},
        {EINVAL, 2, R"({"linked_gpo":{"order":[{"id":1},{"id":1}]}})"}};
    for (const auto& [code, id, szRecord] : changes) {
        EXPECT_EQ(code, set(id, szRecord)) << szRecord;
    }
    EXPECT_EQ(EAGAIN, orErrno(VELQZEMOuSet(&stale)));
    for (const char* szNotUtf8 :
         {"\xc3(", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82"}) {
        bytes.name = szNotUtf8;
        EXPECT_EQ(EINVAL, orErrno(VELQZEMOuSet(&bytes)));
    }
    EXPECT_EQ(ENOENT, create(R"({"name":"n","parent_id":9})"));
    EXPECT_EQ(EEXIST, create(R"({"name":"b","parent_id":1})"));
    EXPECT_EQ(EINVAL, create(R"({"parent_id":1})"));
    EXPECT_EQ(EINVAL, orErrno(VELQZEMOuDeleteAllByID(0)));
    EXPECT_EQ(ENOENT, orErrno(VELQZEMOuDeleteAllByID(9)));
    EXPECT_EQ(ENOENT, setServer(1, R"({"parent_id":9})"));
    EXPECT_EQ(EINVAL, setServer(1, R"({"linked_gpo":{"order":[{"id":9}]}})"));
    for (const char* szList : {"5", "[5]", R"([{"ugid":9,"user_type":2}])", R"([{"ugid":2,"user_type":3}])",
                               R"([{"ugid":2,"user_type":2},{"ugid":2,"user_type":2}])"}) {
        EXPECT_EQ(EINVAL, setDelegates(2, 2, szList)) << szList;
    }
    EXPECT_EQ(ENOENT, setDelegates(2, 9, "[]"));
    EXPECT_EQ(EINVAL, setDelegates(4, 1, "[]"));
    EXPECT_EQ(ENOENT, orErrno(VELQZEMGpoNotifyFetch(1, 2, 9)));
    EXPECT_EQ(jBefore, dump());
}

TEST_P(StoreTest, GroupsNestToTheLimitAlsoWhenMoved)
{
    int64_t parent = 0;
    for (int level = 1; level <= standin::kMaxGroupDepth; ++level) {
        ASSERT_EQ(0, create(R"({"name":"deep","parent_id":)" + std::to_string(parent) + "}", &parent));
    }
    const std::string last = std::to_string(parent);
    const std::string above = std::to_string(group(parent).parentId);
    EXPECT_EQ(EINVAL, create(R"({"name":"n","parent_id":)" + last + "}"));
    EXPECT_EQ(EINVAL, set(2, R"({"parent_id":)" + above + "}"));  // it has a sub-group
    EXPECT_EQ(0, set(3, R"({"parent_id":)" + above + "}"));
}

TEST_P(StoreTest, AccountsSeeAndManageWhatIsTheirs)
{
    ASSERT_EQ(0, setDelegates(2, 0, R"([{"ugid":4,"user_type":2}])"));
    const auto expectRights = [](int uid, const char* szSeen, const char* szManaged) {
        const Json::Value jAll = dump(uid);
        EXPECT_EQ(szSeen, ids(jAll["groups"]) + "/ " + ids(jAll["servers"]) + "/ " + ids(jAll["policies"])) << uid;
        std::string managed;
        for (const int id : {0, 1, 2, 3, 4, 9}) {
            managed += VELQZEMOuCanManagedByUid(static_cast<uint32_t>(uid), id) != 0 ? std::to_string(id) + " " : "";
        }
        EXPECT_EQ(szManaged, managed) << uid;
    };
    expectRights(1, "1 2 3 4 / 1 2 3 / 1 2 3 ", "0 1 2 3 4 9 ");
    expectRights(2, "2 3 / 1 / 1 2 ", "2 3 ");
    expectRights(3, "/ / ", "");  // a delegate of a server only
    expectRights(4, "1 2 3 4 / 1 2 3 / 1 2 3 ", "0 1 2 3 4 ");
    expectRights(77, "/ / ", "");
    EXPECT_EQ(0, VELQZEMOuCanManagedByUid(3, 2));
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ(0x0D01, VLIBCErrGet());
    EXPECT_STREQ("rights.cpp", VLIBCErrorGetFile());
    const Json::Value jNames = delegatesOf(2, 2);
    EXPECT_EQ(R"(2{"domainName":"corp","domainType":"local","userNameCache":"helper"})", jNames[0].asString());
    EXPECT_EQ(R"(1{"domainName":"","domainType":"local","userNameCache":"admin"})", jNames[1].asString());
    runSql("DELETE FROM account WHERE uid = 2");
    expectRights(2, "/ / ", "");
    EXPECT_EQ("2", delegatesOf(2, 2)[0].asString());  // its extra information is gone
}

TEST_P(StoreTest, DeletionMovesServersAndPoliciesToTheRoot)
{
    ASSERT_EQ(0, VELQZEMGpoNotifyFetch(1, 2, 3));
    ASSERT_EQ(0, VELQZEMGpoNotifyFetch(2, 2, 3));
    ASSERT_EQ(0, VELQZEMOuDeleteAllByID(1));
    const Json::Value jAll = dump();
    EXPECT_EQ("4 ", ids(jAll["groups"]));
    for (const Json::Value& jMoved : {jAll["servers"][0], jAll["policies"][1]}) {
        EXPECT_EQ(0, jMoved["parent_id"].asInt());
        EXPECT_EQ(2, jMoved["revision"].asInt());
    }
    EXPECT_EQ(0u, delegatesOf(2, 2).size());
    EXPECT_EQ(1u, delegatesOf(3, 3).size());
    runSql("INSERT INTO gpo_fetch VALUES (2, 3, 1, 1)");  // the notice of the deleted group is gone
}

TEST_P(StoreTest, LinksAndSettingsAreConverted)
{
    const std::tuple<const char*, int, const char*> forms[] = {
        {R"([{"id":5}])", 0, R"({"linked_gpo":{"order":[{"id":5}]}})"},
        {R"({"order":[{"id":5}],"x":1})", 0, R"({"linked_gpo":{"order":[{"id":5}],"x":1}})"},
        {R"("text")", EINVAL, R"({"linked_gpo":"text"})"}};
    for (const auto& [szValue, code, szRecord] : forms) {
        Json::Value jRecord;
        EXPECT_EQ(code, orErrno(VELQZEMHttpReqToJsonForLinkedGpo(json(szValue), jRecord))) << szValue;
        EXPECT_EQ(json(szRecord), jRecord);
    }
    for (const char* szNone : {"null", "{}", R"({"order":[]})"}) {
        ASSERT_EQ(0, set(2, R"({"linked_gpo":{"order":[{"id":1}]}})"));
        ASSERT_EQ(0, set(2, R"({"linked_gpo":)" + std::string(szNone) + "}"));
        EXPECT_TRUE(group(2).linkedGpo.empty()) << szNone;
    }
    const std::tuple<const char*, const char*, const char*> settings[] = {
        {R"({"version":1,"a":2})", R"({"major":3})", R"({"version":3,"a":2})"},
        {R"({"version":4})", R"({"major":3})", R"({"version":4})"},
        {"{}", R"({"major":3})", nullptr},
        {R"({"version":1})", "5", nullptr},
        {"[]", R"({"major":3})", nullptr}};
    for (const auto& [szSetting, szInterface, szExpected] : settings) {
        Json::Value jSetting = json(szSetting);
        Json::Value jInterface = json(szInterface);
        EXPECT_EQ(szExpected ? 0 : EINVAL, orErrno(VELQZEMGpoGetWithVersionConvert(jSetting, jInterface)));
        EXPECT_EQ(json(szExpected ? szExpected : szSetting), jSetting) << szSetting;
    }
    Json::Value jOnly;
    const _tag_velq_zem_ou_ record = group(1);
    ASSERT_EQ(0, VELQZEMOuStructToJson(&record, json(R"(["name","node_type"])"), jOnly));
    EXPECT_EQ(json(R"({"name":"a","node_type":2})"), jOnly);
}

TEST_P(StoreTest, OneLevelIsFilteredThenSortedThenCut)
{
    for (const char* szName : {"B", "e", "D"}) {
        ASSERT_EQ(0, create(std::string(R"({"name":")") + szName + R"(","parent_id":0})"));
    }
    const std::tuple<const char*, const char*, int> pages[] = {
        {R"({"ugid":"1","user_type":"8"})", "a d B e D ", 5},
        {R"({"ugid":"1","user_type":"8","sort_by":"name"})", "B D a d e ", 5},
        {R"({"ugid":"1","user_type":"8","sort_by":"name","sort_direction":"desc","offset":"1","limit":"2"})", "d a ",
         5},
        {R"({"ugid":"1","user_type":"8","offset":"9223372036854775807","limit":"1"})", "", 5},
        {R"({"ugid":"2","user_type":"8"})", "b ", 1},
        {R"({"ugid":"1"})", "", 0},
        {"{}", "", 0}};
    for (const auto& [szQuery, names, expectedTotal] : pages) {
        _tag_velq_zem_ou_* pHead = nullptr;
        int total = -1;
        int count = -1;
        ASSERT_EQ(0, VELQZEMListOneLevelByUidHash(Hash(json(szQuery)).pHash, &pHead, &total, &count)) << szQuery;
        std::string found;
        for (const _tag_velq_zem_ou_* p = pHead; p != nullptr; p = p->pNext, --count) {
            found += std::string(p->name.c_str()) + " ";
        }
        EXPECT_EQ(names, found) << szQuery;
        EXPECT_EQ(expectedTotal, total) << szQuery;
        EXPECT_EQ(0, count) << szQuery;
        VELQZEMOuListFree(&pHead);
    }
    for (const char* szQuery :
         {R"({"offset":"-1"})", R"({"limit":"0"})", R"({"limit":"1x"})", R"({"limit":""})", R"({"sort_by":"desc"})",
          R"({"sort_direction":"up"})", R"({"ugid":"4294967296"})", R"({"ugid":"+1"})", R"({"user_type":"2"})"}) {
        _tag_velq_zem_ou_* pHead = nullptr;
        EXPECT_EQ(EINVAL, orErrno(VELQZEMListOneLevelByUidHash(Hash(json(szQuery)).pHash, &pHead, nullptr, nullptr)));
    }
}

TEST_P(StoreTest, EverythingOutlivesReopening)
{
    ASSERT_EQ(0, create(R"({"name":"'; DROP TABLE ou; --","desc":"\" :id ? $1 \u20ac","parent_id":4,
                                 "block_inheritance":true,"extra_info":["\u0000",1.5]})"));
    ASSERT_EQ(0, VELQZEMOuDeleteAllByID(3));
    standin::setAccountToken(2, "hash");
    const Json::Value jBefore = dump();
    VELQZEMStoreOpen(m_url);
    EXPECT_EQ(jBefore, dump());
    EXPECT_EQ("'; DROP TABLE ou; --", jBefore["groups"][3]["name"].asString());
    EXPECT_EQ("\" :id ? $1 \u20ac", jBefore["groups"][3]["desc"].asString());
    EXPECT_EQ(json(R"(["\u0000",1.5])"), jBefore["groups"][3]["extra_info"]);
    EXPECT_EQ(json(R"({"order":[{"id":1,"on":true}],"kept":7})"), jBefore["groups"][1]["linked_gpo"]);
    EXPECT_FALSE(jBefore["groups"][0].isMember("linked_gpo"));
    EXPECT_EQ(2u, standin::findAccountByToken("hash")->uid);
    EXPECT_FALSE(standin::findAccountByName("' OR '1'='1").has_value());
    EXPECT_THROW(standin::setAccountToken(77, "x"), std::runtime_error);
    ASSERT_EQ(0, VELQZEMOuDeleteAllByID(5));
    int64_t id = 0;
    ASSERT_EQ(0, create(R"({"name":"next"})", &id));
    EXPECT_EQ(6, id);  // not that of a deleted group
    runSql("UPDATE meta SET value = 2 WHERE name = 'version'");
    EXPECT_THROW(standin::prepareSchema(false), std::runtime_error);
    runSql("UPDATE meta SET value = 1 WHERE name = 'version'");
}

TEST_P(StoreTest, FleetErrorsNameTheirPlaceAndStoreNothing)
{
    emptyStore();
    const std::tuple<const char*, int, const char*, const char*> faults[] = {
        {"groups", 1, R"({"id":3})", "groups[1].id: a record of the kind before has it too"},
        {"groups", 1, R"({"id":0})", "groups[1].id: missing or not from 1 to 2^62 - 1"},
        {"groups", 0, R"({"parent_id":99})", "groups[0].parent_id: no group 99"},
        {"groups", 1, R"({"parent_id":3})", "groups[0].parent_id: leads round in a circle"},
        {"groups", 2, R"({"name":7})", "groups[2].name: not a text"},
        {"groups", 3, R"({"name":"a"})", "groups[3].name: a sibling before has it too"},
        {"groups", 2, R"({"delegate":[{"ugid":9,"user_type":2}]})", "groups[2].delegate[0].ugid: no account 9"},
        {"servers", 2, R"({"linked_gpo":{"order":[{"id":1},{"id":9}]}})",
         "servers[2].linked_gpo.order[1].id: no policy 9"},
        {"servers", 1, R"({"parent_id":null})", "servers[1].parent_id: missing"},
        {"policies", 0, R"({"setting":{}})", "policies[0].setting.version: not a 32-bit integer"},
        {"accounts", 2, R"({"uid":4294967295})", "accounts[2].uid: missing or not from 0 to 4294967294"},
        {"accounts", 1, R"({"name":"admin"})", "accounts[1].name: an account before has it too"}};
    const auto messageOf = [](const Json::Value& jFleet) -> std::string {
        try {
            standin::loadFleet(jFleet, {});
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    for (const auto& [szSection, index, szMembers, message] : faults) {
        Json::Value jFleet = json(kFleet);
        const Json::Value jMembers = json(szMembers);
        for (const std::string& name : jMembers.getMemberNames()) {
            jFleet[szSection][index][name] = jMembers[name];
        }
        EXPECT_EQ(message, messageOf(jFleet));
    }
    EXPECT_EQ("groups: not an array", messageOf(json(R"({"groups":5})")));
    EXPECT_EQ("", messageOf(json(kFleet)));  // nothing of the others was left
    EXPECT_NE("", messageOf(json(kFleet)));
}

TEST_P(StoreTest, StatementsOfATreeDoNotGrowWithIt)
{
    const auto statements = [] {
        const uint64_t before = standin::statementCount();
        Tree tree(1);
        for (const _tag_velq_zem_ou_* p = tree.pOu; p != nullptr; p = p->pNext) {
            delegatesOf(p->id, 2);
            _tag_velq_zem_gpo_* pGpo = VELQZEMGpoAlloc();
            EXPECT_EQ(0, VELQZEMGpoGet(1, pGpo));
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
    EXPECT_EQ(few, statements());
}

TEST_P(StoreTest, AListedTreeStaysAtItsMomentUntilReleased)
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
        EXPECT_EQ(0, setDelegates(2, 2, "[]"));
        EXPECT_EQ("renam ", policyName());  // seven bytes are left, the last of them would hold half a character
    }).join();
    EXPECT_EQ("p1", policyName());
    EXPECT_EQ(2u, delegatesOf(2, 2).size());
    VELQZEMKxListFree(&tree.pKx);
    VELQZEMOuListFree(&tree.pOu);
    EXPECT_EQ("p1", policyName());
    tree.release();
    EXPECT_EQ("renam ", policyName());
    EXPECT_EQ(0u, delegatesOf(2, 2).size());
    Tree second(1);
    ASSERT_EQ(0, set(2, R"({"desc":"x"})"));  // a writer sees the store as it is
    runSql("DELETE FROM gpo WHERE id = 1");
    EXPECT_EQ("gone", policyName());
}

}  // namespace
