// Connections, transactions and statements on SQLite and PostgreSQL.
#include "standin/store/database.h"

#include <cstring>
#include <ctime>
#include <memory>

#include <soci/sqlite3/soci-sqlite3.h>

#include "standin/store/store.h"

// SOCI's PostgreSQL backend; its header would need that of the database's client library.
extern "C" const soci::backend_factory* factory_postgresql(void);

namespace standin {
namespace {

constexpr size_t kConnections = 8;
constexpr int kPatienceMilliseconds = 5000;

struct Database {
    explicit Database(bool isPostgres) : postgres(isPostgres) {}
    bool postgres;
    soci::connection_pool pool{kConnections};
};

std::unique_ptr<Database> gDatabase;
thread_local uint64_t tStatements = 0;

constexpr const char* kSqliteSettings[] = {"PRAGMA busy_timeout = 5000", "PRAGMA journal_mode = WAL",
                                           "PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON"};
constexpr const char* kPostgresSettings[] = {"SET lock_timeout = '5s'", "SET client_encoding = 'UTF8'",
                                             "SET client_min_messages = 'error'"};

void configure(soci::session& sql, bool postgres)
{
    if (postgres) {
        for (const char* setting : kPostgresSettings) {
            execute(sql, setting);
        }
        return;
    }
    for (const char* setting : kSqliteSettings) {
        std::string answer;  // some of the settings answer with a row, which must be fetched
        Statement(sql).out(answer).prepare(setting).first();
    }
}

int errnoOfDatabase(const soci::soci_error& error)
{
    if (const auto* pSqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error)) {
        const int primary = pSqlite->result() & 0xff;
        return primary == SQLITE_BUSY || primary == SQLITE_LOCKED ? EBUSY : primary == SQLITE_NOMEM ? ENOMEM : EIO;
    }
    return error.get_error_category() == soci::soci_error::unknown_transaction_state ? EBUSY : EIO;
}

// SOCI takes the string apart at '=' and spoils one that has none.
std::string postgresUrl(const std::string& url)
{
    return url.find('=') == std::string::npos ? url + "?application_name=zem" : url;
}

size_t leaseSlot()
{
    require(gDatabase != nullptr, EIO);
    size_t slot = 0;
    require(gDatabase->pool.try_lease(slot, kPatienceMilliseconds), EBUSY);
    return slot;
}

void begin(soci::session& sql, Access access)
{
    if (!gDatabase->postgres) {
        execute(sql, access == Access::write ? "BEGIN IMMEDIATE" : "BEGIN");
        return;
    }
    execute(sql, access == Access::write ? "BEGIN" : "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY");
    if (access == Access::write) {
        execute(sql, "LOCK TABLE meta IN EXCLUSIVE MODE");
    }
}

// Whether there was a connection to roll back on.
bool rollBack(soci::session& sql) noexcept
{
    try {
        execute(sql, "ROLLBACK");
        return true;
    } catch (...) {
        return false;
    }
}

// A database server that was restarted leaves dead connections in the pool: connect anew before giving up. On a live
// one, what a transaction may fail to begin for is a lock that others keep.
void beginOrReconnect(soci::session& sql, Access access)
{
    try {
        begin(sql, access);
    } catch (const soci::soci_error& error) {
        require(!rollBack(sql) && errnoOfDatabase(error) != EBUSY, EBUSY);
        sql.reconnect();
        configure(sql, gDatabase->postgres);
        begin(sql, access);
    }
}

}  // namespace

Refusal::Refusal(int errnoValue) : std::runtime_error(std::strerror(errnoValue)), code(errnoValue) {}

void require(bool condition, int errnoValue)
{
    if (!condition) {
        throw Refusal(errnoValue);
    }
}

int errnoOfException()
{
    try {
        throw;
    } catch (const Refusal& refusal) {
        return refusal.code;
    } catch (const BadInput&) {
        return EINVAL;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    } catch (const soci::soci_error& error) {
        return errnoOfDatabase(error);
    } catch (...) {
        return EIO;
    }
}

Transaction::Transaction(Access access) : m_slot(leaseSlot()), m_sql(gDatabase->pool.at(m_slot))
{
    try {
        beginOrReconnect(m_sql, access);
    } catch (...) {
        gDatabase->pool.give_back(m_slot);
        throw;
    }
}

Transaction::~Transaction()
{
    if (m_open) {
        rollBack(m_sql);
    }
    gDatabase->pool.give_back(m_slot);
}

void Transaction::commit()
{
    execute(m_sql, "COMMIT");
    m_open = false;
}

Statement& Statement::prepare(const std::string& query, bool once)
{
    m_statement.alloc();
    m_statement.prepare(query, once ? soci::details::st_one_time_query : soci::details::st_repeatable_query);
    m_statement.define_and_bind();
    return *this;
}

bool Statement::first()
{
    ++tStatements;
    return m_statement.execute(true);
}

bool Statement::next()
{
    return m_statement.fetch();
}

int64_t Statement::change()
{
    first();
    return m_statement.get_affected_rows();
}

void execute(soci::session& sql, const std::string& query)
{
    Statement(sql).prepare(query).first();
}

int64_t now()
{
    return std::time(nullptr);
}

uint64_t statementCount()
{
    return tStatements;
}

}  // namespace standin

void VELQZEMStoreOpen(const std::string& url)
{
    VELQZEMStoreClose();
    const std::string sqlite = "sqlite:";
    const bool postgres = url.starts_with("postgresql://");
    if (!postgres && (!url.starts_with(sqlite) || url.size() == sqlite.size() || url.find('"') != std::string::npos)) {
        throw std::runtime_error("a store is named sqlite:PATH or postgresql://...");
    }
    auto pDatabase = std::make_unique<standin::Database>(postgres);
    for (size_t slot = 0; slot < standin::kConnections; ++slot) {
        soci::session& sql = pDatabase->pool.at(slot);
        if (postgres) {
            sql.open(*factory_postgresql(), standin::postgresUrl(url));
        } else {
            sql.open(soci::sqlite3, "dbname=\"" + url.substr(sqlite.size()) + '"');
        }
        standin::configure(sql, postgres);
    }
    // Every writing transaction locks this table on PostgreSQL, the first one too.
    standin::execute(pDatabase->pool.at(0),
                     "CREATE TABLE IF NOT EXISTS meta (name TEXT PRIMARY KEY, value BIGINT NOT NULL)");
    standin::gDatabase = std::move(pDatabase);
    try {
        standin::prepareSchema(postgres);
    } catch (...) {
        VELQZEMStoreClose();
        throw;
    }
}

void VELQZEMStoreClose()
{
    standin::dropSnapshot();
    standin::gDatabase.reset();
}
