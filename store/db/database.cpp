// Opens and closes the database: a pool of connections and, on SQLite, a file.
#include "store/db/database.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <soci/sqlite3/soci-sqlite3.h>

#include "store/base/errors.h"
#include "store/base/timeouts.h"
#include "store/db/operator_turn.h"
#include "store/db/pool.h"
#include "store/db/state_reader.h"
#include "store/sql/address.h"
#include "store/sql/database_error.h"
#include "store/sql/statement.h"
#include "store/sql/store_file.h"

namespace store {
namespace {

std::atomic<uint64_t> gReconnects{0};
std::unique_ptr<Pool> gPool;
std::unique_ptr<StateReader> gStateReader;  // there is one while there is a pool

Pool& openPool()
{
    require(gPool != nullptr, EIO, "no store is open");
    return *gPool;
}

// Switches SQLite to write-ahead logging. SQLite's own waiting for locks does not cover this change.
void enableWriteAheadLog()
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    Connection connection;
    for (;;) {
        try {
            std::string mode;
            Statement(connection.sql()).out(mode).prepare("PRAGMA journal_mode = WAL").first();
            return;
        } catch (const DatabaseError& error) {
            if (error.code != EBUSY || std::chrono::steady_clock::now() > end) {
                throw;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// Opens the connections. Reads from a SQLite file, because opening it does not show whether it can be read.
void connect(const Address& address, size_t connections)
{
    auto pStateReader = std::make_unique<StateReader>(address);
    gPool = std::make_unique<Pool>(address, connections);
    gStateReader = std::move(pStateReader);
    if (!address.isPostgres) {
        openOperatorTurns(address.place);
        number(Connection().sql(), "PRAGMA schema_version");
    }
}

}  // namespace

void openDatabase(const std::string& url, OpenMode mode, size_t connections)
{
    closeDatabase();
    Address address = addressOf(url);
    const std::string path = address.place;  // which may lead elsewhere from now on
    if (!address.isPostgres) {
        address.place = provideStoreFile(path, mode);
    }
    // One thread at a time uses a connection of the pool, so SQLite need not lock it again for every column. The call
    // has no effect, and does no harm, once the library is in use.
    sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
    try {
        connect(address, connections);
    } catch (const DatabaseError& error) {
        closeDatabase();
        const std::string right = address.isPostgres || error.isOtherFile ? "" : missingRight(address.place);
        if (right.empty()) {
            throw;
        }
        throw std::runtime_error("cannot open the store " + path + ": " + right);
    }
}

void setUpDatabaseFile()
{
    const Address& address = gPool->address();
    if (address.isPostgres || !isWritable(address.place)) {
        return;
    }
    restrictStoreFile(address.place);
    enableWriteAheadLog();
}

void closeDatabase()
{
    closeOperatorTurns();
    gStateReader.reset();
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

uint64_t reconnectCount()
{
    return gReconnects;
}

bool isStoreAnswering()
{
    return gPool != nullptr && gPool->isAnswering();
}

std::string storeState()
{
    return isStoreAnswering() ? gStateReader->read() : "";
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

bool Connection::isFormer() const
{
    return gPool->isFormer(m_number);
}

void Connection::close()
{
    gPool->close(m_number);
}

void Connection::reconnect()
{
    gReconnects += isPostgres() ? 1 : 0;  // a file loses nothing with its connection
    gPool->reconnect(m_number);
}

}  // namespace store
