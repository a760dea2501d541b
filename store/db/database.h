// Opens the one database of the process, on SQLite or PostgreSQL, and leases its connections.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <soci/soci.h>

#include "store/store.h"

namespace store {

// Opens "sqlite:PATH" or "postgresql://..." in place of the database that was open before, with that many connections.
// No thread may hold a connection. The contents of the database stay as they are; a missing file is created when the
// mode allows it. Throws std::runtime_error with a text for people; nothing is open then.
void openDatabase(const std::string& url, OpenMode mode, size_t connections);

// Sets the file of the open SQLite database up for a store: private to its owner, and in write-ahead mode, in which
// readers and a writer do not block each other. Call it once the database is known to be a store or to become one.
// Throws as openDatabase; does nothing on PostgreSQL.
void setUpDatabaseFile();

// Closes the database, if one is open. No thread may hold a connection.
void closeDatabase();

// Whether a database is open. Any thread may call it.
bool isDatabaseOpen();

// Whether the open database is on PostgreSQL rather than on SQLite. Any thread may call it.
bool isPostgres();

// Returns how often a connection to PostgreSQL was made anew. Changes that the database had not written to disk before
// may be lost then. Any thread may call it.
uint64_t reconnectCount();

// One connection of the open database, leased to the calling thread while the object lives. Any thread may lease one. A
// thread must not lease a second connection before it has given the first one back.
class Connection {
public:
    // Throws Refusal: EIO when no database is open or its server does not answer; EBUSY when no connection becomes free
    // within kPatience.
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    soci::session& sql();

    // Whether another server has become the primary since the connection was made.
    bool isFormer() const;

    // Closes the connection; it must be reconnected before its next use.
    void close();

    // Makes the connection anew; a transaction that was open on it is lost. Throws DatabaseError, and Refusal EIO when
    // the server does not answer.
    void reconnect();

private:
    const size_t m_number;
};

}  // namespace store
