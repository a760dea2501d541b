// Calls the node store on real databases: SQLite, and PostgreSQL when ZEM_TEST_POSTGRESQL is set.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <mutex>
#include <numeric>
#include <optional>
#include <regex>
#include <set>
#include <thread>
#include <tuple>

#include "platform/velq_zem.h"
#include "store/db/transaction.h"
#include "store/sql/statement.h"
#include "store/store.h"
#include "tests/temp_database.h"

using test::delegates;
using test::json;
using test::linking;

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

// The records of a list as JSON, with their delegates.
template <typename Record, typename Convert>
Json::Value listAsJson(const Record* pHead, Convert convert)
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

// Everything that the account sees.
Json::Value dump(int uid = 1)
{
    const Tree tree(uid);
    const _tag_velq_zem_ou_ root = group(0);
    Json::Value jAll;
    jAll["root"] = listAsJson(&root, VELQZEMOuStructToJson);
    jAll["groups"] = listAsJson(tree.pOu, VELQZEMOuStructToJson);
    jAll["servers"] = listAsJson(tree.pKx, VELQZEMKxStructToJson);
    jAll["policies"] = listAsJson(tree.pGpo, VELQZEMGpoStructToJson);
    return jAll;
}

// The identifiers of what the account sees: "GROUPS / SERVERS / POLICIES / ".
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

// Changes the group or server or its delegates, or creates a group below it. Returns 0, or errno of the first call that
// failed.
using Change = int(int64_t id, const std::string& text);

int set(int64_t id, const std::string& text)
{
    Json::Value jRecord = json(text);
    _tag_velq_zem_ou_ record = group(id);
    return orErrno(VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuSet(&record));
}

int64_t gCreated = 0;  // the group of the last create() that succeeded

int create(int64_t parentId, const std::string& text)
{
    Json::Value jRecord = json(text);
    jRecord["parent_id"] = Json::Value(parentId);
    _tag_velq_zem_ou_ record;
    const int result = orErrno(VELQZEMOuJsonToStruct(jRecord, &record) < 0 ? -1 : VELQZEMOuCreate(&record));
    if (result == 0) {
        EXPECT_EQ(VELQZEMOuItemGetID(&gCreated, &record), 0);
    }
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

template <int nodeType>
int notify(int64_t id, const std::string&)
{
    return orErrno(VELQZEMGpoNotifyFetch(1, nodeType, id));
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// Why opening the store fails; empty when it does not.
std::string openingError(const std::string& url, store::OpenMode mode)
{
    try {
        VELQZEMStoreOpen(url, mode);
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

class StoreTest : public test::DatabaseTest {
    void prepare() override
    {
        openNewStore(json(kFleet));
    }
};

INSTANTIATE_TEST_SUITE_P(Databases, StoreTest, testing::ValuesIn(test::kDatabases));

// Makes a change on behalf of the account; for uid 0 without an acting account.
int changeAs(uint32_t uid, Change* change, int64_t id, const std::string& text)
{
    if (uid == 0) {
        return change(id, text);
    }
    const store::ActingAccount actingAccount(uid);
    return change(id, text);
}

// The reason that belongs to a refusal's text.
std::string reasonOf(const std::string& text, int code)
{
    constexpr std::pair<const char*, const char*> kReasons[] = {
        {"null, ", "missing"},           {"or empty", "missing"},           {"only blanks", "missing"},
        {"not yours", "not_permitted"},  {"stays", "not_permitted"},        {"itself", "cycle"},
        {"no policy", "unknown_policy"}, {"no account", "unknown_account"}, {"no group", "unknown_node"},
        {" before", "duplicate"},        {"sub-group", "duplicate"},        {"longer", "too_long"},
        {"more than 10000", "too_many"}, {"changed by", "stale"},
    };
    for (const auto& [szPart, szReason] : kReasons) {
        if (text.find(szPart) != text.npos) {
            return szReason;
        }
    }
    return code == EINVAL ? "malformed" : "none expected";
}

// The member that a refusal's text names.
std::string memberOf(const std::string& text)
{
    std::smatch found;
    return std::regex_search(text, found, std::regex("^((?!record|node_type)\\S+): ")) ? found[1].str() : "";
}

TEST_P(StoreTest, refusalsChangeNothingAndNameTheReason)
{
    // The helper is the delegate of group 2, the other account of server 3.
    constexpr int kHelper = 2, kOther = 3, kNoAccount = 77;
    ASSERT_EQ(create(1, "{'name':'b2'}"), 0);
    _tag_velq_zem_ou_ stale = group(2);
    ASSERT_EQ(set(2, "{'desc':'newer'}"), 0);
    _tag_velq_zem_ou_ bytes = group(4);
    const std::string longName = "{\"name\":\"" + std::string(256, 'x') + "\"}";
    const std::string longText = "'" + std::string(65537, 'x') + "'";
    std::string manyLinks = "{'id':1}";
    for (int id = 2; id <= 10001; ++id) {
        manyLinks += ",{'id':" + std::to_string(id) + "}";
    }
    const Json::Value jBefore = dump();
    const std::tuple<int, int, Change*, int64_t, std::string, const char*> cases[] = {
        {0, EINVAL, set, 0, "{'parent_id':1}", "parent_id: the root group stays where it is"},
        {0, EINVAL, set, 1, "{'parent_id':1}", "parent_id: the group itself or one below it"},
        {1, EINVAL, set, 1, "{'parent_id':3}", "parent_id: the group itself or one below it"},
        {1, ENOENT, set, 2, "{'parent_id':9}", "parent_id: no group 9"},
        {0, ENOENT, set, 2, "{'id':9}", "no group 9"},
        {0, EINVAL, set, 2, "{'id':null,'desc':'x'}", "id: null, which names no group"},
        {0, EEXIST, set, 1, "{'name':'d'}", "name: the root group has a sub-group of that name"},
        {1, EEXIST, set, 2, "{'name':'b2'}", "name: the group a has a sub-group of that name"},
        {kHelper, EEXIST, set, 2, "{'name':'b2'}", "name: the group above has a sub-group of that name"},
        {0, EINVAL, set, 2, "{'name':''}", "name: missing or empty"},
        {0, EINVAL, set, 2, "{'name':' \\u2003'}", "name: only blanks"},
        {0, EINVAL, set, 2, longName, "name: longer than 255 characters"},
        {0, EINVAL, set, 2, "{'name':'\\u0000'}", "name: a text that is not UTF-8 or holds a NUL"},
        {0, EINVAL, set, 2, "{'desc':5}", "desc: not a text"},
        {0, EINVAL, set, 2, "{'desc':" + longText + "}", "desc: longer than 65536 bytes"},
        {0, EINVAL, set, 2, "{'extra_info':" + longText + "}", "extra_info: longer than 65536 bytes"},
        {0, EINVAL, set, 2, "{'linked_gpo':{'order':[{'id':1}],'kept':[" + longText + ",7]}}",
         "linked_gpo: longer than 65568 bytes"},
        {0, EINVAL, set, 2, linking(manyLinks), "linked_gpo: more than 10000 policies"},
        {0, EINVAL, create, 1, "{'name':'n','desc':" + longText + "}", "desc: longer than 65536 bytes"},
        {0, EINVAL, setServer, 1, "{'address':" + longText + "}", "address: longer than 65536 bytes"},
        {0, EINVAL, set, 2, "{'parent_id':'1'}", "parent_id: not a 64-bit integer"},
        {0, EINVAL, set, 2, "{'block_inheritance':2}", "block_inheritance: neither a boolean nor 0 or 1"},
        {0, EAGAIN, set, 2, "{'revision':1}", "changed by someone else since it was read"},
        {0, EINVAL, set, 2, "{'revision':'2'}", "revision: not a 64-bit integer"},
        {0, EINVAL, set, 2, "[]", "record: not an object"},
        {0, EINVAL, set, 2, "{'linked_gpo':[]}", "linked_gpo: not an object"},
        {0, EINVAL, set, 2, linking("{'id':'1','gpo_id':1}"),
         "linked_gpo.order[0]: not an object with an integer \"id\""},
        {0, EINVAL, set, 2, "{'linked_gpo':{'order':{}}}", "linked_gpo.order: not an array"},
        {0, EINVAL, set, 2, linking("{'id':1},{'gpo_id':9}"), "linked_gpo.order[1].id: no policy 9"},
        {0, EINVAL, set, 2, linking("{'id':1},{'gpo_id':1}"), "linked_gpo.order[1]: a policy that is linked before"},
        {0, ENOENT, create, 9, "{'name':'n'}", "parent_id: no group 9"},
        {0, EEXIST, create, 1, "{'name':'b'}", "name: the group a has a sub-group of that name"},
        {0, EINVAL, create, 1, "{}", "name: missing or empty"},
        {1, EINVAL, deleteAll, 0, "", "the root group cannot be deleted"},
        {1, ENOENT, deleteAll, 9, "", "no group 9"},
        {0, EAGAIN, setServer, 1, "{'revision':2}", "changed by someone else since it was read"},
        {0, ENOENT, setServer, 1, "{'parent_id':9}", "parent_id: no group 9"},
        {0, EINVAL, setServer, 1, linking("{'id':9}"), "linked_gpo.order[0].id: no policy 9"},
        {0, EINVAL, setServer, 1, longName, "name: longer than 255 characters"},
        {0, EINVAL, setDelegates<2>, 2, "5", "delegate: not an array"},
        {0, EINVAL, setDelegates<2>, 2, "[5]", "delegate[0]: not an object"},
        {1, EINVAL, setDelegates<2>, 2, delegates({2, 9}), "delegate[1].ugid: no account 9"},
        {0, EINVAL, setDelegates<2>, 2, "[{'ugid':2,'user_type':3}]", "delegate[0].user_type: not 2, an account"},
        {0, EINVAL, setDelegates<2>, 2, delegates({2, 2}), "delegate[1]: a delegate that is named before"},
        {1, ENOENT, setDelegates<2>, 9, "[]", "no group 9"},
        {1, EINVAL, setDelegates<4>, 1, "[]", "node_type: neither a group nor a server"},
        {1, ENOENT, notify<2>, 9, "", "no group 9"},
        // Rights are checked first, so that a refusal does not show whether a record exists.
        {kHelper, EACCES, set, 1, "{'desc':'x'}", "group 1 is not yours to manage"},
        {kHelper, EACCES, set, 2, "{'id':9}", "group 9 is not yours to manage"},
        {kHelper, EACCES, set, 2, "{'parent_id':0}", "parent_id: group 0 is not yours to manage"},
        {kHelper, EACCES, set, 3, "{'parent_id':9}", "parent_id: group 9 is not yours to manage"},
        {kHelper, EACCES, set, 2, linking("{'id':1},{'id':3}"), "linked_gpo.order[1].id: no policy 3 that you see"},
        {kHelper, EACCES, set, 2, linking("{'gpo_id':9}"), "linked_gpo.order[0].id: no policy 9 that you see"},
        {kHelper, EACCES, create, 1, "{'name':'b'}", "parent_id: group 1 is not yours to manage"},
        {kHelper, EACCES, create, 9, "{'name':'n'}", "parent_id: group 9 is not yours to manage"},
        {kHelper, EACCES, create, 3, "{'name':'n','linked_gpo':{'order':[{'id':3}]}}",
         "linked_gpo.order[0].id: no policy 3 that you see"},
        {kHelper, EACCES, deleteAll, 0, "", "group 0 is not yours to manage"},
        {kHelper, EACCES, deleteAll, 4, "", "group 4 is not yours to manage"},
        {kHelper, EACCES, deleteAll, 9, "", "group 9 is not yours to manage"},
        {kHelper, EACCES, setServer, 2, "{'address':'y'}", "server 2 is not yours to manage"},
        {kHelper, EACCES, setServer, 1, "{'id':9}", "server 9 is not yours to manage"},
        {kHelper, EACCES, setServer, 1, "{'parent_id':4}", "parent_id: group 4 is not yours to manage"},
        {kHelper, EACCES, setDelegates<2>, 1, "5", "group 1 is not yours to manage"},
        {kHelper, EACCES, setDelegates<2>, 9, "[]", "group 9 is not yours to manage"},
        {kHelper, EACCES, setDelegates<3>, 3, "[]", "server 3 is not yours to manage"},
        {kHelper, EACCES, notify<2>, 4, "", "group 4 is not yours to manage"},
        {kOther, EACCES, setServer, 3, "{'address':'y'}", "server 3 is not yours to manage"},
        {kOther, EACCES, setDelegates<3>, 3, "[]", "server 3 is not yours to manage"},
        {kNoAccount, EACCES, set, 2, "{'desc':'x'}", "group 2 is not yours to manage"},
    };
    for (const auto& [uid, code, change, id, record, szText] : cases) {
        EXPECT_EQ(changeAs(static_cast<uint32_t>(uid), change, id, record), code) << szText << record;
        const store::Cause cause = store::takeRefusal();
        EXPECT_EQ(cause.text, szText) << record;
        EXPECT_EQ(cause.reason, reasonOf(cause.text, code)) << cause.text;
        EXPECT_EQ(cause.member, memberOf(cause.text)) << cause.text;
    }
    EXPECT_EQ(orErrno(VELQZEMOuSet(&stale)), EAGAIN);
    EXPECT_EQ(store::takeRefusal().text, "changed by someone else since it was read");
    for (const char* szNotUtf8 :
         {"\xc3(", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82"}) {
        bytes.name = szNotUtf8;
        EXPECT_EQ(orErrno(VELQZEMOuSet(&bytes)), EINVAL);
    }
    stale = group(2);
    stale.desc = std::string(65537, 'x');
    EXPECT_EQ(orErrno(VELQZEMOuSet(&stale)), EINVAL);  // not only in the conversion
    EXPECT_EQ(dump(), jBefore);
}

TEST_P(StoreTest, longTextsOfAnEarlierVersionStayOrBecomeShorter)
{
    const auto desc = [](size_t size) { return "{'desc':'" + std::string(size, 'x') + "'}"; };
    runSql("UPDATE ou SET \"desc\" = '" + std::string(70000, 'x') + "' WHERE id = 2");
    Json::Value jFleet;
    store::reviseFleet([&jFleet](const Json::Value& jStored, int64_t) { return jFleet = jStored; }, true);
    EXPECT_EQ(store::applyFleet(jFleet, {}).changed, 0u);
    EXPECT_EQ(set(2, "{'name':'other'}"), 0);
    EXPECT_EQ(set(2, desc(69999)), 0);
    EXPECT_EQ(set(2, desc(70000)), EINVAL);
    EXPECT_EQ(set(2, desc(65536)), 0);
    EXPECT_EQ(set(2, desc(65537)), EINVAL);
    EXPECT_THROW(store::applyFleet(jFleet, {}), std::runtime_error);
}

TEST_P(StoreTest, createdAndMovedGroupsNestUpToTheLimit)
{
    gCreated = 0;
    for (int level = 1; level <= store::kMaxGroupDepth; ++level) {
        ASSERT_EQ(create(gCreated, "{'name':'deep'}"), 0);
    }
    const std::string toLastButOne = "{'parent_id':" + std::to_string(group(gCreated).parentId) + "}";
    EXPECT_EQ(create(gCreated, "{'name':'n'}"), EINVAL);
    EXPECT_EQ(set(2, toLastButOne), EINVAL);  // its sub-group would be too deep
    EXPECT_EQ(set(3, toLastButOne), 0);
    ASSERT_EQ(setDelegates<2>(0, delegates({4})), 0);
    EXPECT_NE(VELQZEMOuCanManagedByUid(4, gCreated), 0);
}

// tools/model_test.py compares the rights of accounts with a model; these are the cases that the model lacks.
TEST_P(StoreTest, delegatesOfTheRootSeeEverythingAndDeletedAccountsNothing)
{
    ASSERT_EQ(setDelegates<2>(0, delegates({4})), 0);
    EXPECT_EQ(seenBy(1), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_EQ(seenBy(2), "2 3 / 1 / 1 2 / ");
    EXPECT_EQ(dump(2)["groups"][0], dump()["groups"][1]);
    EXPECT_EQ(seenBy(4), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_NE(VELQZEMOuCanManagedByUid(1, 9), 0);  // administrators may manage even a missing group
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
    EXPECT_EQ(delegatesOf(2, 2)[0], "2");  // without extra information
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
    runSql("INSERT INTO gpo_fetch VALUES (2, 3, 1, 1)");  // fails unless the notice of the deleted group is gone
}

TEST_P(StoreTest, convertersAcceptTheFormsOfLinksAndSettings)
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
    for (const char* szNone : {"null", "{}", "{'order':[]}", "{'order':[],'gpo_name':'of an answer'}"}) {
        ASSERT_EQ(set(2, linking("{'id':1}")), 0);
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

TEST_P(StoreTest, oneLevelListIsFilteredThenSortedThenPaged)
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

TEST_P(StoreTest, reopeningKeepsRecordsTokensAndUsedIdentifiers)
{
    ASSERT_EQ(create(4, R"({"name":"'; DROP TABLE ou; --","desc":"\" :id ? $1 \u20ac","block_inheritance":true,
                            "extra_info":["\u0000",1.5]})"),
              0);
    ASSERT_EQ(VELQZEMOuDeleteAllByID(3), 0);
    store::addToken(2, "hash", "", 0);
    const Json::Value jBefore = dump();
    VELQZEMStoreOpen(url());
    EXPECT_EQ(dump(), jBefore);
    const Json::Value& jGroups = jBefore["groups"];
    EXPECT_EQ(jGroups[3]["name"], "'; DROP TABLE ou; --");
    EXPECT_EQ(jGroups[3]["desc"], "\" :id ? $1 \u20ac");
    EXPECT_EQ(jGroups[3]["extra_info"], json("['\\u0000',1.5]"));
    EXPECT_EQ(jGroups[1]["linked_gpo"], json("{'order':[{'id':1,'on':true}],'kept':7}"));
    EXPECT_FALSE(jGroups[0].isMember("linked_gpo"));
    EXPECT_EQ(store::findAccountByToken("hash")->uid, 2u);
    EXPECT_FALSE(store::findAccountByName("' OR '1'='1").has_value());
    ASSERT_EQ(VELQZEMOuDeleteAllByID(5), 0);
    ASSERT_EQ(create(0, "{'name':'next'}"), 0);
    EXPECT_EQ(gCreated, 6);  // identifiers of deleted groups are not reused
    runSql("UPDATE meta SET value = value + 1 WHERE name = 'version'");
    EXPECT_THROW(VELQZEMStoreOpen(url()), std::runtime_error);
}

// The first bytes of the name of policy 1.
std::string policyName()
{
    _tag_velq_zem_gpo_* pGpo = VELQZEMGpoAlloc();
    char name[8] = "gone";
    if (VELQZEMGpoGet(1, pGpo) == 0) {
        EXPECT_EQ(VELQZEMGpoItemGetName(name, sizeof name, pGpo), 0);
    }
    VELQZEMGpoFree(pGpo);
    return name;
}

TEST_P(StoreTest, largerTreesTakeNoMoreStatements)
{
    const auto statements = [] {
        const uint64_t before = store::statementCount();
        Tree tree(1);
        for (const _tag_velq_zem_ou_* p = tree.pOu; p != nullptr; p = p->pNext) {
            delegatesOf(p->id, 2);
            EXPECT_EQ(policyName(), "p1");
        }
        return store::statementCount() - before;
    };
    const uint64_t few = statements();
    Json::Value jFleet = json(kFleet);
    for (int id = 10; id < 5000; ++id) {
        Json::Value& jGroup = jFleet["groups"].append(jFleet["groups"][2]);
        jGroup["id"] = id;
        jGroup["name"] = std::to_string(id);
    }
    store::applyFleet(jFleet, {});
    EXPECT_EQ(statements(), few);
}

// The fleet with that many accounts and policies more, which have the identifiers from 10 on.
Json::Value largerFleet(int more)
{
    Json::Value jFleet = json(kFleet);
    for (int id = 10; id < 10 + more; ++id) {
        jFleet["policies"].append(json("{'id':%,'parent_id':0,'name':'p'}", id));
        jFleet["accounts"].append(json("{'uid':%,'name':'account %'}", id, id));
    }
    return jFleet;
}

// Each statement is a round trip to the database.
TEST_P(StoreTest, largerChangesTakeFewMoreStatements)
{
    constexpr int kMany = 1000, kRowsPerStatement = 100;
    store::applyFleet(largerFleet(kMany), {});
    std::vector<int> ids(kMany);
    std::iota(ids.begin(), ids.end(), 10);
    Json::Value jLinks;
    for (const int id : ids) {
        jLinks["linked_gpo"]["order"].append(json("{'id':%}", id));
    }
    const auto statements = [](uint32_t uid, Change* change, int64_t id, const std::string& text) {
        const uint64_t before = store::statementCount();
        EXPECT_EQ(changeAs(uid, change, id, text), 0) << text;
        return store::statementCount() - before;
    };
    const uint64_t least = isSqlite() ? 11 : 8;  // SQLite reads the path for the history group by group
    EXPECT_EQ(statements(1, create, 3, "{'name':'n'}"), least);
    EXPECT_EQ(statements(2, create, 3, "{'name':'m'}"), least + 1);  // one more checks the rights to the parent
    const uint64_t oneLink = statements(1, set, 4, linking("{'id':1}"));
    // The link before is removed, and the new ones take more than one statement.
    EXPECT_EQ(statements(1, set, 4, jLinks.toStyledString()), oneLink + 1 + kMany / kRowsPerStatement - 1);
    runSql("DELETE FROM gpo WHERE id = 500");
    jLinks["linked_gpo"]["order"].append(json("{'id':2}"));
    EXPECT_EQ(statements(1, set, 4, jLinks.toStyledString()), oneLink);  // only the new link is checked
    EXPECT_EQ(statements(1, set, 4, "{'desc':'x'}"), oneLink - 3);
    EXPECT_EQ(json(group(4).linkedGpo.c_str()), jLinks["linked_gpo"]);
    const uint64_t oneDelegate = statements(1, setDelegates<2>, 1, delegates({1}));
    EXPECT_EQ(statements(1, setDelegates<2>, 1, delegates(ids)), oneDelegate + kMany / kRowsPerStatement - 1);
}

TEST_P(StoreTest, anyNumberOfDelegatesIsStoredInOrder)
{
    store::applyFleet(largerFleet(300), {});
    for (const size_t count : {1, 99, 100, 101, 200, 250, 0}) {
        std::vector<int> uids(count);
        std::iota(uids.rbegin(), uids.rend(), 10);
        ASSERT_EQ(setDelegates<2>(4, delegates(uids)), 0);
        const Json::Value jStored = delegatesOf(4, 2);
        ASSERT_EQ(jStored.size(), count);
        for (const Json::Value& jDelegate : jStored) {
            EXPECT_EQ(std::stoi(jDelegate.asString()), uids.front());
            uids.erase(uids.begin());
        }
    }
}

TEST_P(StoreTest, settingDelegatesWithoutAChangeDoesNotWaitForWriters)
{
    const store::Transaction writer(store::Access::write);
    std::thread([] {
        EXPECT_EQ(setDelegates<2>(2, delegates({2, 1})), 0);
        EXPECT_EQ(setDelegates<2>(2, "null"), 0);
        EXPECT_EQ(setDelegates<2>(9, "[]"), ENOENT);
        EXPECT_EQ(changeAs(3, setDelegates<2>, 2, "[]"), EACCES);
    }).join();
}

TEST_P(StoreTest, applyingAFleetUpdatesTheStatisticsOfTheTables)
{
    if (isSqlite()) {
        return;  // it needs no statistics
    }
    EXPECT_EQ(rows("SELECT n_distinct::text FROM pg_stats WHERE schemaname = current_schema() AND tablename = 'ou'"
                   " AND attname = 'parent_id'"),
              std::multiset<std::string>{"-0.5"});
}

TEST_P(StoreTest, aListedTreeIsASnapshotUntilItIsReleased)
{
    Tree tree(1);
    std::thread([&] {
        runSql("UPDATE gpo SET name = 'renam €' WHERE id = 1");
        EXPECT_EQ(setDelegates<2>(2, "[]"), 0);
        EXPECT_EQ(policyName(), "renam ");  // the buffer has no space for all bytes of the last character
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
    ASSERT_EQ(set(2, "{'desc':'x'}"), 0);  // a write ends the snapshot
    runSql("DELETE FROM gpo WHERE id = 1");
    EXPECT_EQ(policyName(), "gone");
}

TEST_P(StoreTest, accountsChangeWhatTheyManageAndTheChangeLogNamesIt)
{
    std::string log;
    store::setChangeSink([&log](const std::string& line) { log += line + "\n"; });
    ASSERT_EQ(set(3, linking("{'id':3}")), 0);
    const std::tuple<int, Change*, int64_t, std::string> changes[] = {
        {2, set, 3, linking("{'id':3},{'id':1}")},                               // 3 was linked before, group 2 links 1
        {2, set, 2, "{'desc':'x','linked_gpo':{'order':[{'id':2},{'id':3}]}}"},  // 2 is in group 3, which links 3
        {2, set, 2, "{'desc':'x'}"},
        {2, create, 3, "{'name':'n'}"},
        {2, setDelegates<2>, 2, delegates({2, 1})},  // those that it has
        {2, setDelegates<2>, 3, delegates({2, 1})},
        {2, setServer, 1, "{'parent_id':2,'address':'y'}"},
        {2, notify<2>, 2, ""},
        {2, notify<3>, 1, ""},
        {2, deleteAll, 3, ""},
        {1, setDelegates<3>, 3, "[]"},
        {1, create, 0, "{'name':'top','linked_gpo':{'order':[{'id':3}]}}"},
        {0, set, 4, "{'parent_id':2}"}};
    for (const auto& [uid, change, id, record] : changes) {
        EXPECT_EQ(deleteAll(0, ""), EINVAL);  // leaves a refusal text that the next call must clear
        EXPECT_EQ(changeAs(static_cast<uint32_t>(uid), change, id, record), 0) << record << store::takeRefusal().text;
        EXPECT_EQ(store::takeRefusal().text, "");
    }
    EXPECT_EQ(log,
              "- group 3 linked_gpo\nhelper group 3 linked_gpo\nhelper group 2 desc,linked_gpo\n"
              "helper group 5 created\nhelper group 3 delegate\nhelper server 1 parent_id,address\n"
              "helper group 3 deleted\nadmin server 3 delegate\nadmin group 6 created\n- group 4 parent_id\n");
    EXPECT_EQ(rows("SELECT node_type || '.' || node_id || ' for ' || uid FROM gpo_fetch"),
              std::multiset<std::string>({"2.2 for 1", "3.1 for 1"}));
    for (const char* szName : {"x\nadmin group 1 deleted", "-", "uid=1", "a b", "", "\u00e4"}) {
        runSql(std::string("UPDATE account SET name = '") + szName + "' WHERE uid = 2");
        log.clear();
        EXPECT_EQ(changeAs(2, set, 2, std::string(R"({"extra_info":)") + std::to_string(std::strlen(szName)) + "}"), 0);
        EXPECT_EQ(log, "uid=2 group 2 extra_info\n") << szName;
    }
    store::setChangeSink([](const std::string&) { throw std::runtime_error("full"); });
    EXPECT_EQ(set(2, "{'desc':'y'}"), 0);
    store::setChangeSink({});
    EXPECT_EQ(damage(), std::multiset<std::string>());
}

TEST_P(StoreTest, aQuotaBoundsWhatADelegateManages)
{
    ASSERT_EQ(changeAs(0, set, 2, "{'desc':'12345'}"), 0);
    const std::string three = "\u20ac";  // bytes
    store::setQuota({.groups = 1000, .bytes = 1});
    const std::tuple<int, Change*, int64_t, std::string, int> changes[] = {
        {1, create, 0, "{'name':'of an administrator'}", 0},
        {2, create, 2, "{'name':'n'}", EDQUOT},
        {2, set, 2, "{'desc':'123456'}", EDQUOT},
        {2, set, 2, "{'desc':'" + three + three + "'}", EDQUOT},
        {2, set, 2, "{'desc':'abcde'}", 0},
        {2, set, 2, "{'desc':'" + three + "'}", 0},
        {2, setServer, 1, "{'parent_id':2}", 0},
        {2, setServer, 1, "{'address':'a longer address than before'}", EDQUOT}};
    for (const auto& [uid, change, id, record, code] : changes) {
        EXPECT_EQ(changeAs(static_cast<uint32_t>(uid), change, id, record), code) << record;
        EXPECT_EQ(store::takeRefusal().reason, code == 0 ? "" : "quota");
    }
    store::setQuota({.groups = 1, .bytes = 0});
    EXPECT_EQ(changeAs(2, create, 2, "{'name':'n'}"), EDQUOT);
    EXPECT_EQ(changeAs(2, set, 2, "{'desc':'any length'}"), 0);
    store::setQuota({});
    EXPECT_EQ(changeAs(2, create, 2, "{'name':'n'}"), 0);
}

TEST_P(StoreTest, aChangeToTheSameValuesChangesNothing)
{
    std::string lines;
    runSql("UPDATE ou SET name = ' ' WHERE id = 4");
    const Json::Value jBefore = dump();
    store::setChangeSink([&lines](const std::string& line) { lines += line; });
    EXPECT_EQ(set(2, "{'name':'b','desc':'','parent_id':1,'linked_gpo':{'order':[{'gpo_id':1,'on':true}],'kept':7}}"),
              0);
    EXPECT_EQ(set(4, "{'name':' ','linked_gpo':{'order':[]}}"), 0) << "a blank name from an earlier version stays";
    EXPECT_EQ(setServer(3, linking("{'id':3}")), 0);
    store::setChangeSink(nullptr);
    EXPECT_EQ(dump(), jBefore);
    EXPECT_EQ(lines, "");
}

TEST_P(StoreTest, aDelegateThatHandsAGroupOverInOneRequestStillNotifiesItsServers)
{
    const auto handOver = [](int64_t id, const std::string& record) {
        return set(id, record) == 0 && setDelegates<2>(id, delegates({1})) == 0 ? notify<2>(id, "") : -1;
    };
    ASSERT_EQ(setDelegates<2>(3, delegates({1})), 0);
    EXPECT_EQ(changeAs(2, handOver, 2, linking("{'id':1}")), 0) << store::takeRefusal().text;
    EXPECT_EQ(rows("SELECT node_type || '.' || node_id || ' for ' || uid FROM gpo_fetch"),
              std::multiset<std::string>({"2.2 for 1"}));
    EXPECT_EQ(changeAs(2, notify<2>, 2, ""), EACCES);
}

TEST_P(StoreTest, aRequestEndsBeforeTheChangeThatItMayNotMake)
{
    store::addToken(2, "hash", "", 0);
    std::string why;
    const store::RequestWatch watch{"hash", [&why] { return why; }};
    store::ActingAccount request(2, watch);
    ASSERT_EQ(set(2, "{'desc':'x'}"), 0);
    store::Connection().close();  // as the store does where a write must not wait
    ASSERT_EQ(create(2, "{'name':'n'}"), 0) << store::takeRefusal().text;
    why = "over";
    EXPECT_EQ(set(2, "{'desc':'y'}"), ECANCELED);
    EXPECT_EQ(store::takeRefusal().text, "stopped after 2 changes: over");
    EXPECT_EQ(VELQZEMOuCanManagedByUid(2, 2), 0);
    EXPECT_EQ(errno, ECANCELED);
    why.clear();
    std::thread([] { store::revokeTokens(2, std::nullopt); }).join();
    EXPECT_EQ(notify<2>(2, ""), 0);  // of the change that was made
    EXPECT_EQ(setDelegates<2>(2, "[]"), ECANCELED);
    if (!store::isPostgres()) {
        store::Connection().close();
    }
    const std::string before = store::storeState();
    EXPECT_EQ(request.makeDurable(), 0);
    EXPECT_NE(store::storeState(), before) << "SQLite waits for the disk only when it writes";
    EXPECT_EQ(store::takeRefusal().text, "stopped after 2 changes: the token was revoked or has expired");
    EXPECT_STREQ(group(2).desc.c_str(), "x");
}

// Whether a delegate that makes changes all the time makes one after its removal.
bool changesAfterRemoval()
{
    EXPECT_EQ(setDelegates<2>(2, delegates({2})), 0);
    const int64_t start = group(2).revision;
    std::atomic<bool> isOver = false;
    std::jthread delegate([&isOver] {
        const store::ActingAccount actingAccount(2);
        for (int round = 0; !isOver; ++round) {
            setDelegates<2>(2, delegates({2}));
            set(2, "{'desc':'" + std::to_string(round) + "'}");
        }
    });
    while (group(2).revision == start) {
    }
    EXPECT_EQ(setDelegates<2>(2, "[]"), 0);
    const int64_t atRemoval = group(2).revision;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    isOver = true;
    delegate.join();
    return delegatesOf(2, 2).size() != 0 || group(2).revision != atRemoval;
}

TEST_P(StoreTest, aRemovedDelegateCannotAddItselfAgain)
{
    for (int round = 0; round < 100; ++round) {
        ASSERT_FALSE(changesAfterRemoval()) << round;
    }
}

TEST_P(StoreTest, namesAndLinksOfATreeAnswerAreStoredInTheirPlainForm)
{
    const std::string longest = "\u20ac" + std::string(254, 'x');
    ASSERT_EQ(set(3, "{\"name\":\"" + longest + "\",\"revision\":1}"), 0);
    EXPECT_EQ(group(3).name.c_str(), longest);
    ASSERT_EQ(set(2,
                  "{'linked_gpo':{'order':[{'gpo_id':3,'gpo_name':'p3','gpo_desc':''},"
                  "{'gpo_id':2,'id':1,'on':true}],'kept':7}}"),
              0);
    EXPECT_STREQ(group(2).linkedGpo.c_str(), R"({"kept":7,"order":[{"id":3},{"id":1,"on":true}]})");
    _tag_velq_zem_ou_ record = group(3);
    record.linkedGpo = R"({"order":[{"gpo_id":2,"gpo_name":"p2"}]})";
    ASSERT_EQ(VELQZEMOuSet(&record), 0);
    EXPECT_STREQ(group(3).linkedGpo.c_str(), R"({"order":[{"id":2}]})");
    ASSERT_EQ(setServer(1, linking("{'gpo_id':1,'gpo_name':'p1'}")), 0);
    EXPECT_EQ(dump()["servers"][0]["linked_gpo"], json("{'order':[{'id':1}]}"));
    ASSERT_EQ(create(0, "{'id':null,'revision':'any','name':'fresh'}"), 0);
    runSql("DELETE FROM gpo WHERE id = 2");
    EXPECT_EQ(set(3, linking("{'id':2},{'id':1}")), 0);  // the group had this dead link before
    EXPECT_EQ(set(4, linking("{'id':2}")), EINVAL);
}

TEST_P(StoreTest, damageIsReportedAndNoQueryFollowsACycleForever)
{
    runSql("UPDATE ou SET parent_id = 3 WHERE id = 1");  // a cycle: 1 is the parent of 2, 2 of 3, and 3 of 1
    const std::tuple<Change*, int64_t, const char*> changes[] = {
        {deleteAll, 2, ""}, {create, 3, "{'name':'n'}"}, {set, 4, "{'parent_id':2}"}, {set, 2, "{'parent_id':4}"}};
    for (const auto& [change, id, szRecord] : changes) {
        EXPECT_EQ(change(id, szRecord), EIO) << szRecord;
        EXPECT_EQ(store::takeRefusal().text, "the store is damaged: group 1 is its own ancestor");
    }
    runSql("UPDATE ou SET revision = 9223372036854775807 WHERE id = 2");
    EXPECT_EQ(set(2, "{'desc':'x'}"), 0);
    EXPECT_EQ(group(2).revision, 1);
    EXPECT_NE(VELQZEMOuCanManagedByUid(2, 1), 0);
    EXPECT_EQ(VELQZEMOuCanManagedByUid(3, 1), 0);
    EXPECT_EQ(seenBy(2), "1 2 3 / 1 / 1 2 / ");
    EXPECT_EQ(deleteAll(4, ""), 0);
    // 300 groups below group 2, each below the one before, and a cycle of as many.
    runSql(
        "INSERT INTO ou WITH RECURSIVE n (i) AS (SELECT 100 UNION ALL SELECT i + 1 FROM n WHERE i < 399)"
        " SELECT i, CASE WHEN i = 100 THEN 2 ELSE i - 1 END, 'x', '', 1, 1, 0, '', '' FROM n",
        "INSERT INTO ou WITH RECURSIVE n (i) AS (SELECT 500 UNION ALL SELECT i + 1 FROM n WHERE i < 799)"
        " SELECT i, i, 'y' || i, '', 1, 1, 0, '', '' FROM n",
        "UPDATE ou SET parent_id = CASE WHEN id = 500 THEN 799 ELSE id - 1 END WHERE id >= 500");
    EXPECT_LE(dump()["groups"].size(), 2 * 256u);
    EXPECT_GE(dump()["groups"].size(), 2 * 200u);
    EXPECT_LE(dump(2)["groups"].size(), 2 * 256u);
    runSql("DROP TABLE gpo_fetch");
    EXPECT_EQ(notify<2>(0, ""), EIO);
    const std::string reason = store::takeRefusal().text;
    EXPECT_TRUE(reason.starts_with("the database reports: ") && reason.find("gpo_fetch") != reason.npos) << reason;
    EXPECT_TRUE(reason.find("INSERT") == reason.npos && reason.find('\n') == reason.npos) << reason;
}

// "ACCOUNT:LABEL " for each token, with a "!" when it expires and a "*" when it was used.
std::string tokens(std::optional<uint32_t> uid)
{
    std::string text;
    for (const store::Token& token : store::listTokens(uid)) {
        text += token.account + ":" + token.label + (token.expires == 0 ? "" : "!") + (token.lastUsed == 0 ? "" : "*") +
                " ";
    }
    return text;
}

TEST_P(StoreTest, anAccountHasSeveralTokensUntilTheyExpireOrAreRevoked)
{
    const auto owner = [](const char* szHash) {
        const auto account = store::findAccountByToken(szHash);
        return account ? account->name : "";
    };
    store::addToken(2, "h1", "laptop", 0);
    store::addToken(2, "h2", "phone", 60);
    store::addToken(2, "h3", "phone", 60);
    store::addToken(1, "h4", "", 0);
    EXPECT_EQ(tokens(std::nullopt), "admin: helper:laptop helper:phone! helper:phone! ");
    EXPECT_EQ(owner("h1") + owner("h2") + owner("h4") + owner("h5"), "helperhelperadmin");
    VELQZEMStoreClose();
    VELQZEMStoreOpen(url());
    EXPECT_EQ(tokens(2), "helper:laptop* helper:phone!* helper:phone! ");
    runSql("UPDATE token SET expires = made - 1, last_used = 0 WHERE hash = 'h2'");
    EXPECT_EQ(owner("h2"), "");
    EXPECT_EQ(store::revokeTokens(2, "phone"), 2);
    EXPECT_EQ(store::revokeTokens(2, "phone"), 0);
    EXPECT_EQ(owner("h1") + owner("h3"), "helper");
    EXPECT_EQ(store::revokeTokens(2, std::nullopt), 1);
    EXPECT_EQ(tokens(std::nullopt), "admin:* ");
    const std::tuple<uint32_t, const char*, const char*, int> refused[] = {
        {77, "x", "", 0}, {1, "h4", "", 0}, {1, "x", "a\nb", 0}, {1, "x", "\xff", 0}, {1, "x", "", -1}};
    for (const auto& [uid, szHash, szLabel, lifetime] : refused) {
        EXPECT_THROW(store::addToken(uid, szHash, szLabel, lifetime), std::runtime_error) << szLabel << lifetime;
    }
    EXPECT_EQ(tokens(std::nullopt), "admin:* ");
}

// Opens the store in that many processes at the same moment. Returns how many of them failed.
int openingFailures(const std::string& url, int processes)
{
    int start[2];
    EXPECT_EQ(pipe(start), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(fork());
        if (children.back() == 0) {
            close(start[1]);
            [[maybe_unused]] const ssize_t end = read(start[0], &processes, 1);  // returns when all have started
            const std::string fault = openingError(url, store::OpenMode::createIfMissing);
            std::cerr << fault;
            _exit(fault.empty() ? 0 : 1);
        }
    }
    close(start[0]);
    close(start[1]);
    int failures = 0;
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        failures += status != 0;
    }
    return failures;
}

std::string found(uint32_t askingUid, const std::string& text)
{
    std::string names;
    const auto accounts = store::searchAccounts(askingUid, text);
    for (const store::Account& account : accounts.value_or(std::vector{store::Account{0, "refused"}})) {
        names += account.name + " ";
    }
    return names;
}

TEST_P(StoreTest, accountsAreFoundByNameAndUidForThoseWhoManageGroups)
{
    runSql("INSERT INTO account VALUES (20, 'A%_!', 0, '', 'local')");
    EXPECT_EQ(found(1, ""), "A%_! admin helper other rooted ");
    EXPECT_EQ(found(2, "hE"), "helper other ");
    EXPECT_EQ(found(1, "2"), "helper A%_! ") << "the exact uid comes first";
    EXPECT_EQ(found(1, "%_!") + found(1, "_d") + found(1, "'"), "A%_! ");
    EXPECT_EQ(found(3, "") + found(77, ""), "refused refused ") << "who manages at most a server finds nothing";
}

TEST_P(StoreTest, aNullSpoilsItsOwnRecordAlone)
{
    store::addToken(1, "first", "one", 0);
    store::addToken(2, "second", "two", 0);
    store::addToken(2, "third", "three", 0);
    if (isSqlite()) {
        runSql("PRAGMA writable_schema = ON",
               "UPDATE sqlite_master SET sql = replace(sql, ' NOT NULL', '') WHERE name IN ('account', 'token')");
    } else {
        runSql("ALTER TABLE account ALTER name DROP NOT NULL",
               "ALTER TABLE token ALTER label DROP NOT NULL, ALTER expires DROP NOT NULL");
    }
    runSql("UPDATE account SET name = NULL WHERE uid = 2", "UPDATE token SET label = NULL WHERE hash = 'third'");
    EXPECT_EQ(tokens(1) + tokens(2), "admin:one :two : ");
    EXPECT_EQ(seenBy(1), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_EQ(seenBy(2), "2 3 / 1 / 1 2 / ");
    runSql("UPDATE token SET expires = NULL");
    EXPECT_FALSE(store::findAccountByToken("second").has_value());
}

TEST_P(StoreTest, processesThatOpenAMissingStoreTogetherCreateItOnce)
{
    for (int round = 0; round < 3; ++round) {
        closeAndClear();
        ASSERT_EQ(openingFailures(url(), 8), 0);
        VELQZEMStoreOpen(url(), store::OpenMode::existingOnly);
        EXPECT_FALSE(store::hasAccounts());
        store::applyFleet(json(kFleet), {});
    }
    EXPECT_EQ(seenBy(1), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
}

TEST_P(StoreTest, processesThatOpenAVersion1StoreTogetherUpgradeItOnce)
{
    const Json::Value jBefore = dump();
    runSql("DROP TABLE token", "DROP TABLE history", "DROP TABLE policy_link",
           "ALTER TABLE account ADD COLUMN token_hash TEXT",
           "UPDATE account SET token_hash = 'old' || uid WHERE uid < 3",
           "UPDATE meta SET value = 1 WHERE name = 'version'");
    VELQZEMStoreClose();
    ASSERT_EQ(openingFailures(url(), 4), 0);
    VELQZEMStoreOpen(url(), store::OpenMode::existingOnly);
    EXPECT_EQ(dump(), jBefore);
    EXPECT_EQ(tokens(std::nullopt), "admin: helper: ");
    EXPECT_EQ(store::findAccountByToken("old2")->uid, 2u);
    EXPECT_TRUE(store::hasAccounts());
}

// A PostgreSQL database in which transactions fail.
class FailingTransactionTest : public StoreTest {
protected:
    // Makes the first runs of a change fail, at its first write or at its commit. fault: the statement that makes
    // it fail.
    void failFirst(int runs, const std::string& fault, bool isAtCommit) const
    {
        runSql("DROP SEQUENCE IF EXISTS runs CASCADE", "CREATE SEQUENCE runs",
               "CREATE OR REPLACE FUNCTION fail() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN"
               " IF nextval('runs') <= " +
                   std::to_string(runs) + " THEN " + fault + "; END IF; RETURN NULL; END $$");
        for (const std::string table : {"ou", "kx", "delegate", "gpo_fetch", "token"}) {
            runSql("DROP TRIGGER IF EXISTS fails ON " + table,
                   isAtCommit ? "CREATE CONSTRAINT TRIGGER fails AFTER INSERT OR UPDATE OR DELETE ON " + table +
                                    " DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION fail()"
                              : "CREATE TRIGGER fails AFTER INSERT OR UPDATE OR DELETE ON " + table +
                                    " FOR EACH STATEMENT EXECUTE FUNCTION fail()");
        }
    }

    // How often changes have run since failFirst(), counting failures.
    int runs() const
    {
        return std::stoi(*rows("SELECT last_value::text FROM runs").begin());
    }
};

INSTANTIATE_TEST_SUITE_P(Databases, FailingTransactionTest, testing::Values("postgresql"));

constexpr const char* kNotSerializable = "RAISE EXCEPTION 'not serializable' USING ERRCODE = '40001'";
constexpr const char* kDeadlock = "RAISE EXCEPTION 'a deadlock' USING ERRCODE = '40P01'";

TEST_P(FailingTransactionTest, changesAreRetriedAndMadeOnce)
{
    std::string log;
    store::setChangeSink([&log](const std::string& line) { log += line + ", "; });
    const auto addToken = [](int64_t uid, const std::string& hash) {
        store::addToken(static_cast<uint32_t>(uid), hash, "", 0);
        return 0;
    };
    const std::tuple<Change*, int64_t, std::string> changes[] = {
        {set, 2, "{'revision':1,'parent_id':4,'linked_gpo':{'order':[{'gpo_id':2,'gpo_name':'p2'}]}}"},
        {create, 4, "{'name':'new'}"},
        {setServer, 1, "{'address':'y'}"},
        {setDelegates<2>, 2, delegates({3})},
        {setDelegates<2>, 4, delegates({3, 2})},
        {notify<2>, 2, ""},
        {addToken, 1, "hash"},
        {deleteAll, 1, ""}};
    const auto dumpWithoutTimes = [] {
        return std::regex_replace(dump().toStyledString(), std::regex("\"mtime\" : [0-9]+"), "");
    };
    for (const auto& [change, id, record] : changes) {
        ASSERT_EQ(change(id, record), 0) << record;
    }
    const std::string expected = dumpWithoutTimes();
    const std::string expectedLog = std::exchange(log, "");
    for (const bool isAtCommit : {false, true}) {
        openNewStore(json(kFleet));
        failFirst(3, isAtCommit ? kNotSerializable : kDeadlock, isAtCommit);
        for (const auto& [change, id, record] : changes) {
            runSql("ALTER SEQUENCE runs RESTART");
            const uint64_t before = store::repeatedTransactionCount();
            ASSERT_EQ(change(id, record), 0) << record << store::takeRefusal().text;
            EXPECT_GT(runs(), 3) << record;
            EXPECT_EQ(store::repeatedTransactionCount() - before, 3u) << record;
        }
        EXPECT_EQ(dumpWithoutTimes(), expected);
        EXPECT_EQ(std::exchange(log, ""), expectedLog);
    }
    store::setChangeSink({});
}

TEST_P(FailingTransactionTest, readsAreRetriedAndReturnEachRecordOnce)
{
    const Json::Value jBefore = dump();
    runSql(
        "CREATE TABLE start AS SELECT clock_timestamp() + interval '200 ms' AS moment",
        "CREATE FUNCTION fails() RETURNS boolean LANGUAGE plpgsql AS $$ BEGIN IF clock_timestamp() <"
        " (SELECT moment FROM start) THEN RAISE EXCEPTION 'later' USING ERRCODE = '40001'; END IF; RETURN true; END $$",
        "ALTER TABLE delegate RENAME TO delegate_2", "CREATE VIEW delegate AS SELECT * FROM delegate_2 WHERE fails()");
    EXPECT_EQ(dump(), jBefore);
}

TEST_P(FailingTransactionTest, retriesEndAndOtherErrorsAreNotRetried)
{
    const Json::Value jBefore = dump();
    const std::tuple<const char*, bool, int, const char*, bool> faults[] = {
        {"RAISE EXCEPTION 'no' USING ERRCODE = '23505'", false, EIO, "the database reports: ", true},
        {"RAISE EXCEPTION 'no' USING ERRCODE = '23505'", true, EIO, "the database reports: ", true},
        {"PERFORM pg_terminate_backend(pg_backend_pid())", false, EIO, "the database does not answer", true},
        {"RAISE EXCEPTION 'who knows' USING ERRCODE = '40003'", true, EIO, "may be there now or not", true},
        {"PERFORM pg_terminate_backend(pg_backend_pid())", true, EIO, "may be there now or not", true},
        {kNotSerializable, true, EBUSY, "the database is locked by others for too long", false}};
    for (const auto& [szFault, isAtCommit, code, szText, isOnce] : faults) {
        failFirst(1000000, szFault, isAtCommit);
        EXPECT_EQ(set(2, "{'desc':'x'}"), code) << szFault;
        const std::string text = store::takeRefusal().text;
        EXPECT_NE(text.find(szText), text.npos) << text;
        EXPECT_EQ(runs() == 1, isOnce) << szFault;
        EXPECT_EQ(dump(), jBefore);  // on a new connection where the old one was lost
    }
}

TEST_P(FailingTransactionTest, aLostConnectionReportsWhetherEarlierChangesStay)
{
    for (const char* szChanged : {"", "; what the request had changed before stays changed"}) {
        const store::ActingAccount actingAccount(1);
        if (*szChanged != '\0') {
            ASSERT_EQ(set(2, "{'desc':'y'}"), 0);
        }
        failFirst(1, "PERFORM pg_terminate_backend(pg_backend_pid())", false);
        EXPECT_EQ(set(2, "{'desc':'z'}"), EIO);
        EXPECT_EQ(store::takeRefusal().text, std::string("the database does not answer") + szChanged);
    }
    const store::RequestWatch watch;
    store::ActingAccount request(1, watch);
    ASSERT_EQ(set(2, "{'desc':'1'}") + set(2, "{'desc':'2'}"), 0);
    failFirst(1, "PERFORM pg_terminate_backend(pg_backend_pid())", false);
    const std::string doubt = "; what the request had changed before may be there now or not";
    EXPECT_EQ(set(2, "{'desc':'3'}"), EIO);
    EXPECT_EQ(store::takeRefusal().text, "the database does not answer" + doubt);
    EXPECT_EQ(request.makeDurable(), -1);
    EXPECT_EQ(store::takeRefusal().text, "the database was lost before it had stored all changes" + doubt);
}

TEST_P(StoreTest, theOperatorWritesBeforeRequestsOfThisAndOtherProcesses)
{
    const auto write = [&](uint32_t uid, int64_t id) {
        EXPECT_EQ(changeAs(uid, set, id, "{'desc':'now'}"), 0) << store::takeRefusal().text;
    };
    std::optional<store::Transaction> writer(store::Access::write);
    std::vector<std::jthread> threads;
    for (const auto& [uid, id] : {std::pair{1u, 1}, {1u, 2}, {0u, 4}}) {
        threads.emplace_back(write, uid, id);
        std::this_thread::sleep_for(std::chrono::milliseconds(uid == 0 ? 1000 : 150));
    }
    writer.reset();
    threads.clear();
    // The history numbers the changes in the order in which they were committed.
    EXPECT_EQ(rows("SELECT a.record || ' before ' || b.record FROM history a JOIN history b ON a.number < b.number"
                   " WHERE a.uid = 1 AND b.uid < 0"),
              std::multiset<std::string>());
    const auto requests = [this] { return rows("SELECT record FROM history WHERE uid = 1").size(); };
    EXPECT_EQ(requests(), 2u);
    if (isSqlite()) {
        const int folder = open(std::filesystem::path(m_pDatabase->path()).parent_path().c_str(), O_RDONLY);
        ASSERT_EQ(flock(folder, LOCK_EX), 0);  // as a command of another process does
        threads.emplace_back(write, 1, 3);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_EQ(requests(), 2u);
        close(folder);
        threads.clear();
        EXPECT_EQ(requests(), 3u);
    }
}

TEST_P(FailingTransactionTest, writersWaitForOneAnotherAndReadersDoNot)
{
    soci::session other = m_pDatabase->connect();
    other << "BEGIN";
    int64_t version = 0;
    other << "SELECT value FROM meta WHERE name = 'version' FOR UPDATE", soci::into(version);
    other << "UPDATE ou SET name = 'n' WHERE id = 3";
    std::atomic<int> result = -1;
    std::jthread writer([&result] { result = create(2, "{'name':'n'}"); });
    for (int64_t waiting = 0; waiting == 0;) {
        m_pDatabase->connect() << "SELECT COUNT(*) FROM pg_locks WHERE NOT granted", soci::into(waiting);
    }
    EXPECT_EQ(seenBy(1), "1 2 3 4 / 1 2 3 / 1 2 3 / ");
    EXPECT_EQ(result, -1);
    other << "COMMIT";
    writer.join();
    EXPECT_EQ(result, EEXIST);  // the writer sees the group that was renamed while it waited
}

class OldStoreFile : public testing::TestWithParam<const char*> {};

TEST_P(OldStoreFile, keepsItsTreeAndTokens)
{
    const test::TempFolder folder;
    const std::string path = folder.path + "/store.db";
    std::filesystem::copy_file(ZEM_TEST_DATA + std::string(GetParam()), path);
    VELQZEMStoreOpen("sqlite:" + path, store::OpenMode::existingOnly);
    const auto admin = store::findAccountByToken("27ad89ccaa4dfed1d4c91a8016a51cbe89fd1ec5c414e29ad5722c1e0ebe3efa");
    const auto ann = store::findAccountByToken("84bf71134bbc0368f9bda3abdbaf0b1a50d18b0358213f2b53521fb893aa40e9");
    EXPECT_EQ(admin->uid, 1000u);
    EXPECT_EQ(ann->name, "ann");
    EXPECT_EQ(seenBy(1000), "1 4 / 1 3 / 2 5 / ");
    EXPECT_EQ(seenBy(1001), "1 4 / 1 / 2 5 / ");
    const Json::Value jAll = dump(1000);
    EXPECT_EQ(jAll["groups"][0]["linked_gpo"], json("{'order':[{'id':5},{'id':2}]}"));
    EXPECT_EQ(jAll["groups"][1]["extra_info"], json("{'floor':3}"));
    EXPECT_EQ(jAll["servers"][0]["delegates"][0],
              R"(1001{"domainName":"corp","domainType":"local","userNameCache":"ann"})");
    EXPECT_EQ(create(0, "{'name':'next'}"), 0);
    EXPECT_EQ(gCreated, 5);
    int64_t links = 0;
    soci::session(soci::sqlite3, "dbname=" + path) << "SELECT COUNT(*) FROM policy_link WHERE node_type = 2"
                                                      " AND node_id = 1 AND policy_id IN (5, 2)",
        soci::into(links);
    EXPECT_EQ(links, 2);
    VELQZEMStoreClose();
}

// Each holds the same fleet, written by the last program of that schema version.
INSTANTIATE_TEST_SUITE_P(Versions, OldStoreFile, testing::Values("/store_v1.db", "/store_v2.db"));

TEST_P(StoreTest, openingRefusesOtherDatabasesAndCreatesAStoreOnlyWhenAllowed)
{
    using enum store::OpenMode;
    closeAndClear();
    EXPECT_TRUE(openingError(url(), existingOnly).starts_with("there is no store"));
    EXPECT_FALSE(isSqlite() && std::filesystem::exists(m_pDatabase->path()));
    for (const char* szMine : {"CREATE TABLE mine (a BIGINT)", "CREATE TABLE meta (name TEXT, value BIGINT)"}) {
        closeAndClear();
        runSql(szMine, "CREATE TABLE account (a BIGINT)");
        const std::string before = isSqlite() ? contentOf(m_pDatabase->path()) : "";
        for (const auto mode : {existingOnly, createIfMissing}) {
            EXPECT_EQ(openingError(url(), mode), "not a store: the database holds tables of something else");
        }
        EXPECT_EQ(isSqlite() ? contentOf(m_pDatabase->path()) : "", before);
        runSql("DROP TABLE account", "CREATE TABLE ou (a BIGINT)");  // fails if the store has created it
    }
    closeAndClear();
    runSql("CREATE VIEW mine AS SELECT 1 AS a", "SELECT 1");
    EXPECT_EQ(openingError(url(), createIfMissing), "not a store: the database holds tables of something else");
    closeAndClear();
    EXPECT_EQ(openingError(isSqlite() ? url() : "postgres" + url().substr(10), createIfMissing), "");
    EXPECT_FALSE(store::hasAccounts());
    EXPECT_EQ(openingError(url(), existingOnly), "");
}

TEST(StoreFile, isAccessibleToItsOwnerOnly)
{
    const test::TempFolder folder;
    const std::string path = folder.path + "/store.db";
    const auto modes = [&folder] {
        std::set<int> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
            found.insert(static_cast<int>(entry.status().permissions()));
        }
        return found;
    };
    const mode_t mask = umask(0);
    VELQZEMStoreOpen("sqlite:" + path);
    EXPECT_EQ(modes(), std::set<int>{0600});
    for (const auto& entry : std::filesystem::directory_iterator(folder.path)) {
        chmod(entry.path().c_str(), 0666);
    }
    VELQZEMStoreOpen("sqlite:" + path, store::OpenMode::existingOnly);
    EXPECT_EQ(modes(), std::set<int>{0600});
    VELQZEMStoreClose();
    umask(mask);
    std::ofstream(path) << std::string(5000, 'x');
    chmod(path.c_str(), 0644);
    EXPECT_EQ(openingError("sqlite:" + path, store::OpenMode::createIfMissing),
              "not a store: the file is not a database");
    EXPECT_EQ(modes(), std::set<int>{0644});
    EXPECT_EQ(contentOf(path), std::string(5000, 'x'));
}

}  // namespace
