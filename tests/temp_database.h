// Gives tests an empty database on SQLite or PostgreSQL, SQL access to it beside the store, and texts of records. Needs
// SOCI with both backends.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <vector>

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "store/store.h"
#include "tests/support.h"

// SOCI's PostgreSQL backend. Its header would need the header of PostgreSQL's client library.
extern "C" const soci::backend_factory* factory_postgresql(void);

namespace test {

constexpr const char* kDatabases[] = {"sqlite", "postgresql"};

// The text of a record that links these policies: "{'id':1},{'gpo_id':2}".
inline std::string linking(const std::string& links)
{
    return "{'linked_gpo':{'order':[" + links + "]}}";
}

// The text of the delegates of a record, one for each account.
inline std::string delegates(const std::vector<int>& uids)
{
    std::string text;
    for (const int uid : uids) {
        text += (text.empty() ? "{'ugid':" : ",{'ugid':") + std::to_string(uid) + ",'user_type':2}";
    }
    return "[" + text + "]";
}

// The URL of a database in which tests may create and drop schemas; null when there is none.
inline const char* postgresqlForTests()
{
    return std::getenv("ZEM_TEST_POSTGRESQL");
}

// A database that is empty at first and removed with the object: a file in a temporary folder, or a schema of this
// process in postgresqlForTests().
class TempDatabase {
public:
    // kind: one of kDatabases.
    explicit TempDatabase(const std::string& kind)
    {
        if (kind == "sqlite") {
            m_url = "sqlite:" + m_folder.path + "/a store.db";
            return;
        }
        m_url = postgresqlForTests();
        m_url += std::string(m_url.find('?') == m_url.npos ? "?" : "&") + "options=-cclient_min_messages%3Derror";
        m_url += "%20-csearch_path%3D" + m_schema;
        clear();
    }
    ~TempDatabase()
    {
        if (!isSqlite()) {
            run("DROP SCHEMA " + m_schema + " CASCADE");
        }
    }
    TempDatabase(const TempDatabase&) = delete;

    const std::string& url() const
    {
        return m_url;
    }

    bool isSqlite() const
    {
        return m_url.starts_with("sqlite:");
    }

    // The path of SQLite's file.
    std::string path() const
    {
        return m_url.substr(m_url.find(':') + 1);
    }

    // Empties the database. No store may be open there.
    void clear() const
    {
        if (!isSqlite()) {
            return run("DROP SCHEMA IF EXISTS " + m_schema + " CASCADE", "CREATE SCHEMA " + m_schema);
        }
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path)) {
            std::filesystem::remove(entry);
        }
    }

    // A new connection.
    soci::session connect() const
    {
        return isSqlite() ? soci::session(soci::sqlite3, "dbname=\"" + path() + '"')
                          : soci::session(*factory_postgresql(), m_url);
    }

    // Executes the statements on a new connection, each in a transaction of its own.
    template <typename... Texts>
    void run(const Texts&... statements) const
    {
        soci::session sql = connect();
        for (const std::string& statement : {std::string(statements)...}) {
            sql << statement;
        }
    }

private:
    const TempFolder m_folder;
    const std::string m_schema = "zem_test_" + std::to_string(getpid());
    std::string m_url;
};

// Base of tests that run once on each of kDatabases. The store is closed after each test.
class DatabaseTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() final
    {
        if (std::string("postgresql") == GetParam() && postgresqlForTests() == nullptr) {
            GTEST_SKIP() << "ZEM_TEST_POSTGRESQL is not set";
        }
        m_pDatabase = std::make_unique<TempDatabase>(GetParam());
        prepare();
    }
    void TearDown() final
    {
        VELQZEMStoreClose();
    }
    // Runs before each test, on an empty database.
    virtual void prepare() {}

    bool isSqlite() const
    {
        return m_pDatabase->isSqlite();
    }
    const std::string& url() const
    {
        return m_pDatabase->url();
    }
    void closeAndClear() const
    {
        VELQZEMStoreClose();
        m_pDatabase->clear();
    }
    // Empties the database and opens a new store there, with the fleet in it unless that is null.
    void openNewStore(const Json::Value& jFleet = Json::Value()) const
    {
        closeAndClear();
        VELQZEMStoreOpen(url());
        if (!jFleet.isNull()) {
            store::applyFleet(jFleet, {});
        }
    }
    template <typename... Texts>
    void runSql(const Texts&... statements) const
    {
        m_pDatabase->run(statements...);
    }
    // The rows of a query with one text in each.
    std::multiset<std::string> rows(const std::string& query) const
    {
        soci::session sql = m_pDatabase->connect();
        const soci::rowset<std::string> found = sql.prepare << query;
        return {found.begin(), found.end()};
    }
    // The damage in the open store; none in a sound one.
    std::multiset<std::string> damage() const
    {
        auto found = rows(
            "WITH RECURSIVE below (id) AS (SELECT id FROM ou WHERE id = 0 UNION SELECT o.id FROM ou o JOIN below b"
            " ON o.parent_id = b.id) SELECT 'not below the root, ' || id FROM ou WHERE id NOT IN (SELECT id FROM below)"
            " UNION ALL"
            " SELECT 'siblings, ' || name FROM ou WHERE id <> 0 GROUP BY parent_id, name HAVING COUNT(*) > 1");
        if (isSqlite()) {
            const std::string links =
                "SELECT 2 AS type, n.id, json_extract(value, '$.id') FROM ou n, json_each(linked_gpo, '$.order')"
                " WHERE linked_gpo <> '' UNION ALL SELECT 3, n.id, json_extract(value, '$.id') FROM kx n,"
                " json_each(linked_gpo, '$.order') WHERE linked_gpo <> ''";
            const std::string asText = "SELECT 'link of ' || type || '.' || id FROM (";
            found.merge(rows(asText + links + " EXCEPT SELECT * FROM policy_link)"));
            found.merge(rows(asText + "SELECT node_type AS type, node_id AS id, policy_id FROM policy_link EXCEPT " +
                             "SELECT * FROM (" + links + "))"));
            found.merge(
                rows("SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> 'ok' UNION ALL"
                     " SELECT 'no such parent, ' || \"table\" || rowid FROM pragma_foreign_key_check"));
        }
        return found;
    }
    std::unique_ptr<TempDatabase> m_pDatabase;
};

}  // namespace test
