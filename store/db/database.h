// The one open database of the process and its pool of connections, on SQLite or PostgreSQL.
#pragma once

#include <cstddef>
#include <string>

#include <soci/soci.h>

#include "store/store.h"

namespace store {

// Opens "sqlite:PATH" or "postgresql://..." in place of what was open before, with that many connections. No thread may
// hold one. What the database holds stays as it is; a file is made when the mode says so. Throws std::runtime_error,
// with a text for people, or soci::soci_error; nothing is open then.
void openDatabase(const std::string& url, OpenMode mode, size_t connections);

// Makes the open database one that a store can live in, once it is known to be or to become one: its file is its
// owner's alone, readers and a writer do not lock each other out.
void settleDatabase();

// Closes the database, if one is open. No thread may hold a connection.
void closeDatabase();

// Whether a database is open. Any thread may ask.
bool isDatabaseOpen();

// Whether the open database speaks PostgreSQL's dialect; else it is SQLite's. Any thread may ask.
bool isPostgres();

// One connection of the open database, leased for as long as the object lives. Any thread may lease one, and the object
// stays with it; a thread that leases a second one while all are taken waits for itself.
class Connection {
public:
    // Throws Refusal: EIO when no database is open, and when it is one on a server that does not answer; EBUSY when no
    // connection comes free within five seconds.
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    soci::session& sql();

    // Closes it: whoever leases it next has to reconnect.
    void close();

    // Connects anew; a transaction that was open on the connection is lost. Throws soci::soci_error, and Refusal EIO
    // when the database does not answer.
    void reconnect();

private:
    const size_t m_number;
};

// For as long as it lives, statements on the connection fail rather than wait for the locks of others.
class NoLockWait {
public:
    explicit NoLockWait(soci::session& sql);
    ~NoLockWait();
    NoLockWait(const NoLockWait&) = delete;

private:
    soci::session& m_sql;
};

}  // namespace store
