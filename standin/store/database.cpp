// Every connection is opened and set up when the database is opened, so that a wrong address is noticed at once.
#include "standin/store/database.h"

#include <memory>
#include <stdexcept>

#include <soci/sqlite3/soci-sqlite3.h>

#include "standin/store/errors.h"
#include "standin/store/statement.h"

// SOCI's PostgreSQL backend; its header would need that of the database's client library.
extern "C" const soci::backend_factory* factory_postgresql(void);

namespace standin {
namespace {

constexpr size_t kConnections = 8;
constexpr int kPatienceMilliseconds = 5000;
constexpr char kSqlitePrefix[] = "sqlite:";
constexpr char kPostgresPrefix[] = "postgresql://";

struct Database {
    explicit Database(bool isPostgresql) : postgres(isPostgresql) {}
    const bool postgres;
    soci::connection_pool pool{kConnections};
};

std::unique_ptr<Database> gDatabase;

constexpr const char* kSqliteSettings[] = {"PRAGMA busy_timeout = 5000", "PRAGMA journal_mode = WAL",
                                           "PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON"};
constexpr const char* kPostgresSettings[] = {"SET lock_timeout = '5s'", "SET client_encoding = 'UTF8'",
                                             "SET client_min_messages = 'error'"};

void configure(soci::session& sql, bool postgres)
{
    if (postgres) {
        for (const char* szSetting : kPostgresSettings) {
            execute(sql, szSetting);
        }
        return;
    }
    for (const char* szSetting : kSqliteSettings) {
        std::string answer;  // some of the settings answer with a row, which must be fetched
        Statement(sql).out(answer).prepare(szSetting).first();
    }
}

void connect(soci::session& sql, const std::string& url, bool postgres)
{
    if (postgres) {
        // SOCI takes the string apart at '=' and spoils one that has none.
        sql.open(*factory_postgresql(), url.find('=') == std::string::npos ? url + "?application_name=zem" : url);
    } else {
        sql.open(soci::sqlite3, "dbname=\"" + url.substr(sizeof(kSqlitePrefix) - 1) + '"');
    }
    configure(sql, postgres);
}

size_t leaseSlot()
{
    require(gDatabase != nullptr, EIO);
    size_t slot = 0;
    require(gDatabase->pool.try_lease(slot, kPatienceMilliseconds), EBUSY);
    return slot;
}

}  // namespace

void openDatabase(const std::string& url)
{
    closeDatabase();
    const bool postgres = url.starts_with(kPostgresPrefix);
    const bool sqlite = url.starts_with(kSqlitePrefix) && url != kSqlitePrefix && url.find('"') == std::string::npos;
    if (!postgres && !sqlite) {
        throw std::runtime_error("a store is named sqlite:PATH or postgresql://...");
    }
    // A connection of the pool is used by one thread at a time: locking it again for every column is a waste. This has
    // no effect, and does no harm, when the library is in use already.
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
    auto pDatabase = std::make_unique<Database>(postgres);
    for (size_t slot = 0; slot < kConnections; ++slot) {
        connect(pDatabase->pool.at(slot), url, postgres);
    }
    gDatabase = std::move(pDatabase);
}

void closeDatabase()
{
    gDatabase.reset();
}

bool isPostgres()
{
    return gDatabase != nullptr && gDatabase->postgres;
}

Connection::Connection() : m_slot(leaseSlot()) {}

Connection::~Connection()
{
    gDatabase->pool.give_back(m_slot);
}

soci::session& Connection::sql()
{
    return gDatabase->pool.at(m_slot);
}

void Connection::reconnect()
{
    sql().reconnect();
    configure(sql(), gDatabase->postgres);
}

}  // namespace standin
