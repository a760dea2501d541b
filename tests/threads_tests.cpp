// Runs the module on one store that several threads and processes change at once. No change may be lost or counted
// twice. The tests read the stored data with plain SQL.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "include/webapi_zem_lib.h"
#include "store/store.h"
#include "tests/temp_database.h"

using namespace test;

namespace {

using Rows = std::multiset<std::string>;
using Random = std::mt19937;
enum Change { kCreated, kDeleted, kSet, kNothing };  // kSet: of a group of the fleet, or of the links of a node

constexpr int kAdmin = 1;
constexpr int kGroups = 24, kServers = 30, kPolicies = 8, kAdds = 200;

constexpr const char* kNodes =  // in the form of nodesIn()
    "SELECT '2 ' || id FROM ou WHERE id <> 0 UNION ALL SELECT '3 ' || id FROM kx UNION ALL SELECT '4 ' || id FROM gpo";
constexpr const char* kRevisions =  // the number of changes of the groups and servers of the fleet
    "SELECT SUM(revision - 1) FROM (SELECT revision FROM ou WHERE id BETWEEN 1 AND 24 UNION ALL SELECT revision FROM "
    "kx) AS both_kinds";
constexpr const char* kLinks =
    "SELECT linked_gpo FROM ou WHERE linked_gpo <> '' UNION ALL SELECT linked_gpo FROM kx WHERE linked_gpo <> ''";

int pick(Random& random, int least, int most)
{
    return std::uniform_int_distribution(least, most)(random);
}

Json::Value randomFleet(Random& random)
{
    Json::Value jFleet = json("{'accounts':[{'uid':%,'name':'admin','admin':true}]}", kAdmin);
    for (const auto& [szPart, count] : {std::pair("groups", kGroups), {"servers", kServers}, {"policies", kPolicies}}) {
        for (int id = 1; id <= count; ++id) {
            Json::Value& jItem = jFleet[szPart].append(json("{'id':%,'name':'%'}", id, id));
            jItem["parent_id"] = pick(random, 0, count == kGroups ? id - 1 : kGroups);
            for (int gpoId = pick(random, 1, 2 * kPolicies); count > kPolicies && gpoId <= kPolicies; gpoId += 3) {
                jItem["linked_gpo"]["order"].append(json("{'id':%}", gpoId));
            }
        }
    }
    return jFleet;
}

// Calls the method on behalf of the administrator, as the server does.
VELQ::APIResponse call(const char* szMethod, const Json::Value& jParams = Json::Value())
{
    const store::ActingAccount actingAccount(kAdmin);
    return answerOf(handlerOf(szMethod), jParams, kAdmin);
}

Rows nodesIn(const Json::Value& jNodes)
{
    Rows found;
    for (const Json::Value& jNode : jNodes) {
        found.insert(jNode["node_type"].asString() + " " + jNode["node_id"].asString());
        found.merge(nodesIn(jNode["children"]));
    }
    return found;
}

struct ThreadsTest : DatabaseTest {
    // The identifiers of the policies in the links that the query returns, once for each link.
    Rows links(const std::string& query) const
    {
        Rows found;
        for (const std::string& text : rows(query)) {
            const Json::Value jLinks = json(text);
            for (const Json::Value& jLink : jLinks["order"]) {
                found.insert(jLink["id"].asString());
            }
        }
        return found;
    }
};

INSTANTIATE_TEST_SUITE_P(Databases, ThreadsTest, testing::ValuesIn(kDatabases));

// Makes a random call. created: the groups that the thread created. Returns the change that was
// made.
Change callRandom(Random& random, std::vector<Json::Value>& created)
{
    constexpr const char* kNames[] = {"'; DROP TABLE ou; --", "\" OR 1=1", ":id", "%s%n", "a"};
    Json::Value jParams = json("{'id':0,'node_id':%,'parent_id':%,'gpo_id':%}", pick(random, 1, kGroups),
                               pick(random, 0, kGroups), pick(random, 1, kPolicies));
    jParams["name"] = kNames[pick(random, 0, 4)];
    const auto ifDone = [](Change change, bool isDone) { return isDone ? change : kNothing; };
    const int isAdd = pick(random, 0, 1), choice = pick(random, 0, created.empty() ? 5 : 6);
    if (choice == 0) {
        const VELQ::APIResponse resp = call("KXGroup create", jParams);
        if (resp.IsSuccess()) {
            created.push_back(resp.GetData()["ids"]);
        }
        return ifDone(kCreated, resp.IsSuccess());
    }
    if (choice <= 2) {
        jParams.removeMember(choice == 1 ? "name" : "parent_id");
        return ifDone(kSet, call("KXGroup set", jParams).IsSuccess());
    }
    if (choice <= 4) {
        return ifDone(kSet, (choice == 3 ? VELQZEMOuUpdateLinkGpo : VELQZEMKxUpdateLinkGpo)(jParams, isAdd) == 0);
    }
    if (choice == 6) {
        jParams["node_id"] = created.back();
        created.pop_back();
    }
    EXPECT_TRUE(call(choice == 5 ? "Tree get" : "KXGroup delete", jParams).IsSuccess());
    return choice == 5 ? kNothing : kDeleted;
}

TEST_P(ThreadsTest, storedChangesAreThoseThatWereAnswered)
{
    Random fleetRandom(1);
    openNewStore(randomFleet(fleetRandom));
    std::atomic<int> counts[] = {0, 0, 0, 0};
    std::atomic<int> changes = 0;  // by "set" and links, without those that found the values as they are
    store::setChangeSink([&changes](const std::string& line) {
        changes += line.ends_with(" created") || line.ends_with(" deleted") ? 0 : 1;
    });
    const auto work = [&counts](unsigned seed) {
        Random random(seed);
        std::vector<Json::Value> created;
        for (int i = 0; i < 100; ++i) {
            ++counts[callRandom(random, created)];
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned seed = 1; seed <= 8; ++seed) {
            threads.emplace_back(work, seed);
        }
    }
    store::setChangeSink(nullptr);
    EXPECT_GT(changes, 150);
    EXPECT_GE(counts[kSet], changes);
    EXPECT_EQ(rows("SELECT value - 24 FROM meta WHERE name = 'last_ou'"), Rows({std::to_string(counts[kCreated])}));
    const int left = counts[kCreated] - counts[kDeleted];
    EXPECT_EQ(rows("SELECT COUNT(*) FROM ou WHERE id > 24"), Rows({std::to_string(left)}));
    EXPECT_EQ(rows(kRevisions), Rows({std::to_string(changes)}));
    EXPECT_EQ(nodesIn(call("Tree get").GetData()), rows(kNodes));
    EXPECT_EQ(damage(), Rows());
    const Rows policies = rows("SELECT id FROM gpo");
    for (const std::string& id : links(kLinks)) {
        EXPECT_TRUE(policies.contains(id)) << "a link to no policy, " << id;
    }
}

TEST_P(ThreadsTest, linksAddedByTwoProcessesAreAllKept)
{
    Random random(1);
    Json::Value jFleet = randomFleet(random);
    jFleet["groups"][0]["linked_gpo"] = jFleet["servers"][0]["linked_gpo"] = Json::Value();
    for (int id = kPolicies + 1; id <= kPolicies + 2 * kAdds; ++id) {
        jFleet["policies"].append(json("{'id':%,'name':'more','parent_id':0}", id));
    }
    // The result of each call, in memory that the processes share.
    auto* pResults = static_cast<int*>(
        mmap(nullptr, 2 * kAdds * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const auto addHalf = [&](int (*update)(Json::Value&, int), int first) noexcept {
        VELQZEMStoreOpen(url());
        for (int i = first; i < first + kAdds; ++i) {
            Json::Value jLink = json("{'node_id':1,'gpo_id':%}", kPolicies + 1 + i);
            pResults[i] = update(jLink, 1);
        }
        _exit(0);
    };
    for (const auto& [update, szTable] : {std::pair(&VELQZEMOuUpdateLinkGpo, "ou"), {&VELQZEMKxUpdateLinkGpo, "kx"}}) {
        openNewStore(jFleet);
        VELQZEMStoreClose();
        for (const int first : {0, kAdds}) {
            if (fork() == 0) {
                addHalf(update, first);
            }
        }
        EXPECT_TRUE(wait(nullptr) > 0 && wait(nullptr) > 0);
        Rows added;
        for (int i = 0; i < 2 * kAdds; ++i) {
            ASSERT_TRUE(pResults[i] == 0 || pResults[i] == -1);
            if (pResults[i] == 0) {
                added.insert(std::to_string(kPolicies + 1 + i));
            }
        }
        EXPECT_GT(added.size(), kAdds / 2u);
        EXPECT_EQ(links("SELECT linked_gpo FROM " + std::string(szTable) + " WHERE id = 1"), added);
    }
    munmap(pResults, 2 * kAdds * sizeof(int));
}

}  // namespace
