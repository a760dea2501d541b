// A database for a store, of either kind, and the way to it past the store. Links SOCI with both its backends.
#pragma once

#include <unistd.h>

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "tests/support.h"

// SOCI's PostgreSQL backend; its header would need that of the database's client library.
extern "C" const soci::backend_factory* factory_postgresql(void);

namespace test {

constexpr const char* kDatabases[] = {"sqlite", "postgresql"};

// The URL of a database whose schemas tests may make and drop; null when there is none.
inline const char* postgresqlForTests()
{
    return std::getenv("ZEM_TEST_POSTGRESQL");
}

// Empty at first and gone with the object: a file in a folder, or a schema of this process in postgresqlForTests().
class TempDatabase {
public:
    // szKind: one of kDatabases.
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

    // Of SQLite's file, the only one in its folder at first.
    std::string path() const
    {
        return m_url.substr(m_url.find(':') + 1);
    }

    // Leaves nothing of what the database holds. No store may be open there.
    void clear() const
    {
        if (!isSqlite()) {
            return run("DROP SCHEMA IF EXISTS " + m_schema + " CASCADE", "CREATE SCHEMA " + m_schema);
        }
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path)) {
            std::filesystem::remove(entry);
        }
    }

    // A connection of its own.
    soci::session connect() const
    {
        return isSqlite() ? soci::session(soci::sqlite3, "dbname=\"" + path() + '"')
                          : soci::session(*factory_postgresql(), m_url);
    }

    // Each statement by itself.
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

}  // namespace test
