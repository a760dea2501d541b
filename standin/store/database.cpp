// Every connection is opened and set up when the database is opened, so that a wrong address is noticed at once.
#include "standin/store/database.h"

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include <soci/sqlite3/soci-sqlite3.h>

#include "standin/store/address.h"
#include "standin/store/errors.h"
#include "standin/store/question.h"
#include "standin/store/statement.h"
#include "standin/store/store_file.h"
#include "standin/store/watch.h"

// SOCI's PostgreSQL backend; its header would need that of the database's client library.
extern "C" const soci::backend_factory* factory_postgresql(void);

namespace standin {
namespace {

constexpr size_t kConnections = 8;
constexpr int kPatienceMilliseconds = 5000;
struct Database {
    explicit Database(Address where) : address(std::move(where)) {}
    const Address address;
    soci::connection_pool pool{kConnections};
    std::optional<Watch> watch;  // ends first
};

std::unique_ptr<Database> gDatabase;

constexpr const char* kPatience[] = {"PRAGMA busy_timeout = 5000", "SET lock_timeout = '5s'"};  // by isPostgres
constexpr const char* kNoPatience[] = {"PRAGMA busy_timeout = 0", "SET lock_timeout = '1ms'"};
constexpr const char* kSqliteSettings[] = {"PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON"};
constexpr const char* kPostgresSettings[] = {"SET client_encoding = 'UTF8'", "SET client_min_messages = 'error'"};

// Some of SQLite's settings answer with a row, which must be fetched.
void setSqlite(soci::session& sql, const char* szSetting)
{
    std::string answer;
    Statement(sql).out(answer).prepare(szSetting).first();
}

void setPatience(soci::session& sql, const char* const (&settings)[2])
{
    isPostgres() ? execute(sql, settings[1]) : setSqlite(sql, settings[0]);
}

void configure(soci::session& sql, bool postgres)
{
    if (postgres) {
        execute(sql, kPatience[1]);
        for (const char* szSetting : kPostgresSettings) {
            execute(sql, szSetting);
        }
        return;
    }
    setSqlite(sql, kPatience[0]);
    for (const char* szSetting : kSqliteSettings) {
        setSqlite(sql, szSetting);
    }
}

void connect(soci::session& sql, const Address& address)
{
    if (address.isPostgres) {
        sql.open(*factory_postgresql(), address.place);
    } else {
        sql.open(soci::sqlite3, "dbname=\"" + address.place + '"');
    }
    configure(sql, address.isPostgres);
}

// Has readers and a writer not lock each other out. Changing this is the one thing that SQLite does not wait for.
void writeAhead()
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMilliseconds);
    Connection connection;
    for (;;) {
        try {
            return setSqlite(connection.sql(), "PRAGMA journal_mode = WAL");
        } catch (const soci::soci_error&) {
            if (errnoOfException() != EBUSY || std::chrono::steady_clock::now() > end) {
                throw;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

size_t leaseSlot()
{
    require(gDatabase != nullptr, EIO, "no store is open");
    size_t slot = 0;
    require(gDatabase->pool.try_lease(slot, kPatienceMilliseconds), EBUSY);
    return slot;
}

}  // namespace

void openDatabase(const std::string& url, OpenMode mode)
{
    closeDatabase();
    auto pDatabase = std::make_unique<Database>(addressOf(url));
    const Address& address = pDatabase->address;
    if (!address.isPostgres) {
        provideStoreFile(address.place, mode);
    }
    // A connection of the pool is used by one thread at a time: locking it again for every column is a waste. This has
    // no effect, and does no harm, when the library is in use already.
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
    for (size_t slot = 0; slot < kConnections; ++slot) {
        connect(pDatabase->pool.at(slot), address);
    }
    pDatabase->watch.emplace(questionFor(address), [](bool) {});
    gDatabase = std::move(pDatabase);
}

void settleDatabase()
{
    const Address& address = gDatabase->address;
    if (address.isPostgres || !isWritable(address.place)) {
        return;
    }
    restrictStoreFile(address.place);
    writeAhead();
}

void closeDatabase()
{
    gDatabase.reset();
}

bool isPostgres()
{
    return gDatabase != nullptr && gDatabase->address.isPostgres;
}

bool isStoreAnswering()
{
    return gDatabase != nullptr && gDatabase->watch->isAnswering();
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
    configure(sql(), gDatabase->address.isPostgres);
}

Impatience::Impatience(soci::session& sql) : m_sql(sql)
{
    setPatience(m_sql, kNoPatience);
}

Impatience::~Impatience()
{
    try {
        setPatience(m_sql, kPatience);
    } catch (const std::runtime_error&) {  // the connection is lost, and set up anew when it is made anew
    }
}

}  // namespace standin
