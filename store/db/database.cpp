// The open database is a pool of connections; SQLite's files need some care beside.
#include "store/db/database.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/db/address.h"
#include "store/db/pool.h"
#include "store/db/session.h"
#include "store/db/statement.h"
#include "store/db/store_file.h"

namespace store {
namespace {

std::unique_ptr<Pool> gPool;

Pool& openPool()
{
    require(gPool != nullptr, EIO, "no store is open");
    return *gPool;
}

// Has readers and a writer not lock each other out. Changing this is the one thing that SQLite does not wait for.
void writeAhead()
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    Connection connection;
    for (;;) {
        try {
            std::string mode;
            Statement(connection.sql()).out(mode).prepare("PRAGMA journal_mode = WAL").first();
            return;
        } catch (const soci::soci_error&) {
            if (errnoOfException() != EBUSY || std::chrono::steady_clock::now() > end) {
                throw;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace

void openDatabase(const std::string& url, OpenMode mode, size_t connections)
{
    closeDatabase();
    const Address address = addressOf(url);
    if (!address.isPostgres) {
        provideStoreFile(address.place, mode);
    }
    // A connection of the pool is used by one thread at a time: locking it again for every column is a waste. This has
    // no effect, and does no harm, when the library is in use already.
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
    gPool = std::make_unique<Pool>(address, connections);
}

void settleDatabase()
{
    const Address& address = gPool->address();
    if (address.isPostgres || !isWritable(address.place)) {
        return;
    }
    restrictStoreFile(address.place);
    writeAhead();
}

void closeDatabase()
{
    gPool.reset();
}

bool isDatabaseOpen()
{
    return gPool != nullptr;
}

bool isPostgres()
{
    return gPool != nullptr && gPool->address().isPostgres;
}

bool isStoreAnswering()
{
    return gPool != nullptr && gPool->isAnswering();
}

Connection::Connection() : m_number(openPool().lease()) {}

Connection::~Connection()
{
    gPool->giveBack(m_number);
}

soci::session& Connection::sql()
{
    return gPool->at(m_number);
}

void Connection::close()
{
    gPool->close(m_number);
}

void Connection::reconnect()
{
    gPool->reconnect(m_number);
}

NoLockWait::NoLockWait(soci::session& sql) : m_sql(sql)
{
    setLockWait(m_sql, false);
}

NoLockWait::~NoLockWait()
{
    try {
        setLockWait(m_sql, true);
    } catch (const std::runtime_error&) {  // the connection is lost, and set up anew when it is made anew
    }
}

}  // namespace store
