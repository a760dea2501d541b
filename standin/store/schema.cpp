// The tables as SQL, in the dialect of either database, and the version that tells a program of another schema.
#include "standin/store/schema.h"

#include <cstdint>
#include <stdexcept>
#include <string>

#include "standin/store/statement.h"
#include "standin/store/transaction.h"

namespace standin {
namespace {

constexpr int64_t kSchemaVersion = 1;

// The counters stand in meta beside the version: an identifier is never given out twice. Foreign keys are checked at
// commit, so that a fleet's groups may be stored in any order. Group 0 is its own parent.
constexpr const char* kSchema[] = {
    "CREATE TABLE account (uid BIGINT PRIMARY KEY, name TEXT NOT NULL UNIQUE, admin BIGINT NOT NULL,"
    " domain_name TEXT NOT NULL, domain_type TEXT NOT NULL, token_hash TEXT UNIQUE)",
    "CREATE TABLE ou (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id) DEFERRABLE INITIALLY DEFERRED, name TEXT NOT NULL,"
    " \"desc\" TEXT NOT NULL, mtime BIGINT NOT NULL, revision BIGINT NOT NULL, block_inheritance BIGINT NOT NULL,"
    " linked_gpo TEXT NOT NULL, extra_info TEXT NOT NULL)",
    "CREATE INDEX ou_parent ON ou (parent_id)",
    "CREATE UNIQUE INDEX ou_sibling ON ou (parent_id, name) WHERE id <> 0",
    "CREATE TABLE kx (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id) DEFERRABLE INITIALLY DEFERRED, name TEXT NOT NULL,"
    " address TEXT NOT NULL, sid TEXT NOT NULL, mtime BIGINT NOT NULL, revision BIGINT NOT NULL,"
    " linked_gpo TEXT NOT NULL)",
    "CREATE INDEX kx_parent ON kx (parent_id)",
    "CREATE TABLE gpo (id BIGINT PRIMARY KEY,"
    " parent_id BIGINT NOT NULL REFERENCES ou (id) DEFERRABLE INITIALLY DEFERRED, name TEXT NOT NULL,"
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

// Texts sort by their bytes, as SQLite does by itself, whatever the locale of the database.
std::string inDialect(std::string statement)
{
    const std::string type = "TEXT ";
    for (size_t at = 0; isPostgres() && (at = statement.find(type, at)) != std::string::npos; at += type.size()) {
        statement.insert(at + type.size(), "COLLATE \"C\" ");
    }
    return statement;
}

// This table comes first and by itself: every writing transaction locks it on PostgreSQL, the first one too.
void createMeta()
{
    Connection connection;
    execute(connection.sql(), "CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY, value BIGINT NOT NULL)");
}

}  // namespace

void prepareSchema()
{
    createMeta();
    Transaction transaction(Access::write);
    soci::session& sql = transaction.sql();
    if (number(sql, "SELECT COUNT(*) FROM meta") == 0) {
        for (const char* szStatement : kSchema) {
            execute(sql, inDialect(szStatement));
        }
        change(sql, "INSERT INTO meta VALUES ('version', :version)", kSchemaVersion);
    }
    const int64_t version = number(sql, "SELECT value FROM meta WHERE name = 'version'");
    if (version != kSchemaVersion) {
        throw std::runtime_error("the store has schema version " + std::to_string(version) + ", this program needs " +
                                 std::to_string(kSchemaVersion));
    }
    transaction.commit();
}

}  // namespace standin
