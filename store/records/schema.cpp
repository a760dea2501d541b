// Creates the tables in the dialect of either database and upgrades those of earlier versions. A store that is up to
// date is only read.
#include "store/records/schema.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>

#include "store/base/errors.h"
#include "store/db/transaction.h"
#include "store/records/link_rows.h"
#include "store/sql/statement.h"

namespace store {
namespace {

constexpr int64_t kSchemaVersion = 3;

constexpr const char* kTokenTable =
    "CREATE TABLE token (hash TEXT PRIMARY KEY, uid BIGINT NOT NULL REFERENCES account (uid) ON DELETE CASCADE,"
    " label TEXT NOT NULL, made BIGINT NOT NULL, expires BIGINT NOT NULL, last_used BIGINT NOT NULL)";
constexpr const char* kTokenIndex = "CREATE INDEX token_account ON token (uid)";

// The table meta holds the version and the highest identifier that a group ever had, so that none is used twice. Group
// 0 is its own parent. A store that an earlier program created checks its foreign keys at commit, a newer one after
// each statement.
constexpr const char* kSchema[] = {
    "CREATE TABLE account (uid BIGINT PRIMARY KEY, name TEXT NOT NULL UNIQUE, admin BIGINT NOT NULL,"
    " domain_name TEXT NOT NULL, domain_type TEXT NOT NULL)",
    kTokenTable,
    kTokenIndex,
    "CREATE TABLE ou (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id), name TEXT NOT NULL,"
    " \"desc\" TEXT NOT NULL, mtime BIGINT NOT NULL, revision BIGINT NOT NULL, block_inheritance BIGINT NOT NULL,"
    " linked_gpo TEXT NOT NULL, extra_info TEXT NOT NULL)",
    "CREATE INDEX ou_parent ON ou (parent_id)",
    "CREATE UNIQUE INDEX ou_sibling ON ou (parent_id, name) WHERE id <> 0",
    "CREATE TABLE kx (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id) ON DELETE RESTRICT, name TEXT NOT NULL,"
    " address TEXT NOT NULL, sid TEXT NOT NULL, mtime BIGINT NOT NULL, revision BIGINT NOT NULL,"
    " linked_gpo TEXT NOT NULL)",
    "CREATE INDEX kx_parent ON kx (parent_id)",
    "CREATE TABLE gpo (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id) ON DELETE RESTRICT, name TEXT NOT NULL,"
    " \"desc\" TEXT NOT NULL, mtime BIGINT NOT NULL, revision BIGINT NOT NULL, setting TEXT NOT NULL)",
    "CREATE INDEX gpo_parent ON gpo (parent_id)",
    "CREATE TABLE delegate (node_type BIGINT NOT NULL, node_id BIGINT NOT NULL, position BIGINT NOT NULL,"
    " ugid BIGINT NOT NULL, user_type BIGINT NOT NULL, PRIMARY KEY (node_type, node_id, position))",
    "CREATE INDEX delegate_account ON delegate (ugid)",
    "CREATE TABLE gpo_fetch (node_type BIGINT NOT NULL, node_id BIGINT NOT NULL, uid BIGINT NOT NULL,"
    " mtime BIGINT NOT NULL, PRIMARY KEY (node_type, node_id))",
    "INSERT INTO ou VALUES (0, 0, 'root', '', 0, 0, 0, '', '')",
    "INSERT INTO meta VALUES ('last_ou', 0)",
};

// Executes the statements. Makes texts sort by their bytes, which is the default on SQLite and on PostgreSQL without a
// language.
void executeAll(soci::session& sql, const auto& statements)
{
    const bool isByLanguage = number(sql, "SELECT CASE WHEN 'a' < 'B' THEN 1 ELSE 0 END") != 0;
    const std::string type = "TEXT ";
    for (std::string statement : statements) {
        for (size_t at = 0; isByLanguage && (at = statement.find(type, at)) != std::string::npos; at += type.size()) {
            statement.insert(at + type.size(), "COLLATE \"C\" ");
        }
        execute(sql, statement);
    }
}

// Creates the function on PostgreSQL that returns the identifiers and the names of a group and those above it, as the
// table of changes holds them. PostgreSQL keeps the plan of its query. A damaged tree may have cycles.
void createPathFunction(soci::session& sql)
{
    execute(sql,
            "CREATE OR REPLACE FUNCTION group_path(wanted BIGINT, OUT ids TEXT, OUT path TEXT) LANGUAGE plpgsql STABLE "
            "AS $$"
            " DECLARE above RECORD;"
            " BEGIN"
            " ids = ''; path = '';"
            " FOR step IN 1.." +
                std::to_string(2 * kMaxGroupDepth) +
                " LOOP"
                " SELECT id, parent_id, REPLACE(REPLACE(name, '\\', '\\\\'), '/', '\\/') AS part INTO above"
                " FROM ou WHERE id = wanted AND id <> 0;"
                " EXIT WHEN NOT FOUND;"
                " ids = '/' || above.id || ids; path = '/' || above.part || path; wanted = above.parent_id;"
                " END LOOP;"
                " ids = SUBSTR(ids, 2); path = SUBSTR(path, 2);"
                " END $$");
}

// Creates the table of changes. The database numbers the rows.
void createHistory(soci::session& sql)
{
    const std::string number = isPostgres() ? "BIGSERIAL" : "INTEGER";
    executeAll(sql, std::initializer_list<std::string>{
                        "CREATE TABLE history (number " + number +
                            " PRIMARY KEY, time BIGINT NOT NULL, uid BIGINT NOT NULL, actor TEXT NOT NULL, record TEXT"
                            " NOT NULL, group_ids TEXT NOT NULL, path TEXT NOT NULL, changes TEXT NOT NULL)",
                        "CREATE INDEX history_record ON history (record, number)"});
    if (isPostgres()) {
        createPathFunction(sql);
    }
}

// An apply writes many links, so the table is no larger than its key. Only an apply asks for the nodes of a policy, and
// reads all of the rows then.
void createLinkTable(soci::session& sql)
{
    execute(sql, std::string("CREATE TABLE policy_link (node_type BIGINT NOT NULL, node_id BIGINT NOT NULL,"
                             " policy_id BIGINT NOT NULL, PRIMARY KEY (node_type, node_id, policy_id))") +
                     (isPostgres() ? "" : " WITHOUT ROWID"));
}

void createTables(soci::session& sql)
{
    executeAll(sql, kSchema);
    createHistory(sql);
    createLinkTable(sql);
}

// Version 1 had one token in each account's row. SQLite cannot drop that column, so the rows move to a new table.
constexpr const char* kFromVersion1[] = {
    "ALTER TABLE account RENAME TO account_1",
    "CREATE TABLE account (uid BIGINT PRIMARY KEY, name TEXT NOT NULL UNIQUE, admin BIGINT NOT NULL,"
    " domain_name TEXT NOT NULL, domain_type TEXT NOT NULL)",
    "INSERT INTO account SELECT uid, name, admin, domain_name, domain_type FROM account_1",
    kTokenTable,
    kTokenIndex,
    "INSERT INTO token SELECT token_hash, uid, '', 0, 0, 0 FROM account_1 WHERE token_hash IS NOT NULL",
    "DROP TABLE account_1",
};

void upgradeFrom1(soci::session& sql)
{
    executeAll(sql, kFromVersion1);
}

// Version 2 had no history, and links only as texts.
void upgradeFrom2(soci::session& sql)
{
    createHistory(sql);
    createLinkTable(sql);
    fillLinkRows(sql);
}

// Each converts a store to the next version; the first one a store of version 1.
constexpr void (*kUpgrades[])(soci::session& sql) = {upgradeFrom1, upgradeFrom2};
static_assert(std::size(kUpgrades) == kSchemaVersion - 1);

int64_t readVersion(soci::session& sql)
{
    return number(sql, "SELECT value FROM meta WHERE name = 'version'");
}

// Returns the names of the tables and views, without those that belong to the database itself.
std::set<std::string> tableNames(soci::session& sql)
{
    std::set<std::string> names;
    std::string name;
    Statement statement(sql);
    statement.out(name).prepare(isPostgres()
                                    ? "SELECT tablename FROM pg_tables WHERE schemaname = current_schema()"
                                      " UNION SELECT viewname FROM pg_views WHERE schemaname = current_schema()"
                                    : "SELECT name FROM sqlite_master WHERE type IN ('table', 'view')"
                                      " AND substr(name, 1, 7) <> 'sqlite_'");
    for (bool isRow = statement.first(); isRow; isRow = statement.next()) {
        names.insert(name);
    }
    return names;
}

// Returns the version of the store in the open database, 0 for an empty one. Throws std::runtime_error when the
// database holds something else.
int64_t versionOfDatabase(soci::session& sql)
{
    static const std::set<std::string> kOurs = {"account", "delegate", "gpo", "gpo_fetch", "kx", "meta", "ou"};
    const std::set<std::string> names = tableNames(sql);
    // A program that was interrupted while it created a store may have left the first of the tables.
    const bool isBegun = names == std::set<std::string>{"meta"} && number(sql, "SELECT COUNT(*) FROM meta") == 0;
    if (names.empty() || isBegun) {
        return 0;
    }
    const bool isStore = std::includes(names.begin(), names.end(), kOurs.begin(), kOurs.end());
    const int64_t version = isStore ? readVersion(sql) : 0;
    if (version == 0) {
        throw std::runtime_error("not a store: the database holds tables of something else");
    }
    return version;
}

// Creates the table meta, before and apart from the others: every writing transaction on PostgreSQL, including the one
// that creates the others, looks for a row in it to lock.
void createMeta()
{
    constexpr char kMeta[] = "CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY, value BIGINT NOT NULL)";
    Connection connection;
    try {
        execute(connection.sql(), kMeta);
    } catch (const DatabaseError&) {  // another process created it at the same moment; then it exists by now
        execute(connection.sql(), kMeta);
    }
}

// Creates or upgrades the tables, unless another process has done so meanwhile. Where several do so at once, all but
// one wait to insert the first row and then fail.
void bringUpToDate(soci::session& sql)
{
    const int64_t version = readVersion(sql);
    if (version == 0) {
        change(sql, "INSERT INTO meta VALUES ('version', :version)", kSchemaVersion);
        return createTables(sql);
    }
    for (int64_t step = version; step < kSchemaVersion; ++step) {
        kUpgrades[step - 1](sql);
    }
    change(sql, "UPDATE meta SET value = :version WHERE name = 'version'", kSchemaVersion);
}

// Returns the version of the store that is to be opened, 0 for an empty database. Throws as prepareSchema().
int64_t usableVersion(OpenMode mode)
{
    const int64_t version = inTransaction(Access::read, versionOfDatabase);
    if (version == 0 && mode != OpenMode::createIfMissing) {
        throw NoStore("there is no store: the database is empty");
    }
    if (version < 0 || version > kSchemaVersion) {
        throw std::runtime_error("the store has schema version " + std::to_string(version) + ", this program needs " +
                                 std::to_string(kSchemaVersion));
    }
    return version;
}

}  // namespace

void prepareSchema(OpenMode mode)
{
    int64_t version = usableVersion(mode);
    setUpDatabaseFile();
    while (version < kSchemaVersion) {
        try {
            createMeta();
            inTransaction(Access::write, bringUpToDate);
            return;
        } catch (const DatabaseError&) {
            const int64_t before = version;
            version = usableVersion(mode);
            if (version == before) {  // no other process was quicker
                throw;
            }
        }
    }
}

}  // namespace store
