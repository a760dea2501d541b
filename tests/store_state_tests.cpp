// Tests the names of the store's state, and the notes of tokens' last uses, which must not give it new names.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <set>
#include <thread>

#include "platform/velq_zem.h"
#include "store/base/timeouts.h"
#include "store/records/records.h"
#include "tests/temp_database.h"

using test::json;

namespace {

constexpr const char* kFleet = R"({"accounts": [{"uid":1,"name":"admin","admin":true}, {"uid":2,"name":"helper"}],
  "groups": [{"id":1,"parent_id":0,"name":"a"}], "servers": [{"id":1,"parent_id":1,"name":"s"}]})";

class StoreStateTest : public test::DatabaseTest {
protected:
    void prepare() override
    {
        openNewStore(json(kFleet));
        store::addToken(1, "h", "", 0);
    }
    void reopen() const
    {
        VELQZEMStoreClose();
        VELQZEMStoreOpen(url());
    }
};

TEST_P(StoreStateTest, hasAnotherNameAfterEachChangeAndOpening)
{
    std::set<std::string> names = {""};
    const auto isNew = [&names] { return names.insert(store::storeState()).second; };
    EXPECT_TRUE(isNew());
    _tag_velq_zem_ou_ group;
    Json::Value jGroup = json("{'parent_id':1,'name':'new'}");
    EXPECT_TRUE(VELQZEMOuJsonToStruct(jGroup, &group) == 0 && VELQZEMOuCreate(&group) == 0 && isNew());
    group.name = "changed";
    EXPECT_TRUE(VELQZEMOuSet(&group) == 0 && isNew());
    _tag_velq_zem_kx_ server;
    EXPECT_EQ(VELQZEMKxGet(1, &server), 0);
    server.name = "changed";
    EXPECT_TRUE(VELQZEMKxSet(&server) == 0 && isNew());
    Json::Value jDelegates = json("{'delegate':[{'ugid':2,'user_type':2}]}");
    EXPECT_TRUE(VELQZEMDelegateSetListByTarget(1, VELQ_ZEM_TYPE_OU, jDelegates) == 0 && isNew());
    EXPECT_TRUE(VELQZEMGpoNotifyFetch(1, store::kServerType, 1) == 0 && isNew());
    EXPECT_TRUE(VELQZEMOuDeleteAllByID(1) == 0 && isNew());
    EXPECT_TRUE(store::applyFleet(json(kFleet), {}).created > 0 && isNew());
    store::addToken(1, "h2", "", 0);
    EXPECT_TRUE(isNew());
    EXPECT_TRUE(store::revokeTokens(1, std::nullopt) == 2 && isNew());
    runSql("UPDATE account SET name = 'x' WHERE uid = 2");
    EXPECT_TRUE(isNew());
    reopen();
    EXPECT_TRUE(isNew());
    VELQZEMStoreClose();
    EXPECT_EQ(store::storeState(), "");
}

TEST_P(StoreStateTest, keepsItsNameWhileNothingChanges)
{
    bool isKept = false;
    for (int i = 0; i < 20 && !isKept; ++i) {  // on PostgreSQL, changes of other databases count too
        const std::string before = store::storeState();
        EXPECT_EQ(store::listTokens(1).size(), 1u);
        EXPECT_TRUE(store::findAccountByToken("h").has_value());
        if (isSqlite()) {  // on PostgreSQL, it locks a row
            EXPECT_EQ(VELQZEMOuDeleteAllByID(77), -1);
            EXPECT_EQ(store::applyFleet(json(kFleet), {}).changed, 0u);
        }
        isKept = before == store::storeState();
    }
    EXPECT_TRUE(isKept);
}

TEST_P(StoreStateTest, namesWhatSeveralThreadsSee)
{
    std::atomic<bool> isEnd = false;
    const auto read = [&isEnd] {
        for (std::map<std::string, std::string> seen; !isEnd || seen.size() < 2;) {
            const std::string name = store::storeState();
            _tag_velq_zem_ou_ group;
            EXPECT_EQ(VELQZEMOuGet(1, &group), 0);
            if (name == store::storeState()) {
                EXPECT_EQ(seen.try_emplace(name, group.desc.c_str()).first->second, group.desc.c_str());
            }
        }
    };
    std::thread readers[] = {std::thread(read), std::thread(read), std::thread(read)};
    for (int i = 0; i < 100; ++i) {
        runSql("UPDATE ou SET \"desc\" = '" + std::to_string(i) + "' WHERE id = 1");
    }
    isEnd = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST_P(StoreStateTest, hasNoOldNameOfAReplacedFileOrALostConnection)
{
    const std::string before = store::storeState();
    if (!isSqlite()) {
        runSql("SELECT pg_terminate_backend(" + std::to_string(std::stoi(before.substr(17))) + ")");
        EXPECT_EQ(store::storeState(), "");
        std::this_thread::sleep_for(store::kStateRetryPause + std::chrono::seconds(1));
        const std::string after = store::storeState();
        EXPECT_TRUE(!after.empty() && after.substr(0, 16) != before.substr(0, 16)) << after;
        return;
    }
    const std::string path = m_pDatabase->path(), copy = path + " copy", away = path + " away";
    std::filesystem::copy_file(path, copy);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // file systems round times
    std::filesystem::copy_file(copy, path, std::filesystem::copy_options::overwrite_existing);
    EXPECT_NE(store::storeState(), before);
    std::filesystem::rename(path, away);
    std::filesystem::rename(copy, path);
    EXPECT_EQ(store::storeState(), "");
}

TEST_P(StoreStateTest, usesOfTokensAreWrittenWhenTheStoreClosesAndNeverWaitForLocks)
{
    const auto lastUseAfter = [this](int64_t stored) {
        runSql("UPDATE token SET last_used = " + std::to_string(stored));
        EXPECT_TRUE(store::findAccountByToken("h").has_value());
        EXPECT_EQ(store::listTokens(1).at(0).lastUsed, stored);
        reopen();
        return store::listTokens(1).at(0).lastUsed;
    };
    const int64_t used = lastUseAfter(1);
    EXPECT_GT(used, 1);
    EXPECT_EQ(lastUseAfter(used + 100), used + 100);   // of another server
    EXPECT_LT(lastUseAfter(used + 5000), used + 100);  // of a wrong clock
    EXPECT_TRUE(store::findAccountByToken("h").has_value());
    soci::session writer = m_pDatabase->connect();
    writer << (isSqlite() ? "BEGIN IMMEDIATE" : "BEGIN");
    writer << "UPDATE token SET last_used = 1";
    const auto start = std::chrono::steady_clock::now();
    VELQZEMStoreClose();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

INSTANTIATE_TEST_SUITE_P(Databases, StoreStateTest, testing::ValuesIn(test::kDatabases));

}  // namespace
