// The one open database of the process and its pool of connections, on SQLite or PostgreSQL.
#pragma once

#include <cstddef>
#include <string>

#include <soci/soci.h>

namespace standin {

// Opens "sqlite:PATH" or "postgresql://..." in place of what was open before. No thread may hold a connection. Throws
// std::runtime_error, with a text for people; nothing is open then.
void openDatabase(const std::string& url);

// Closes the database, if one is open. No thread may hold a connection.
void closeDatabase();

// Whether the open database speaks PostgreSQL's dialect; else it is SQLite's. Any thread may ask.
bool isPostgres();

// One connection of the open database, leased for as long as the object lives. Any thread may lease one, and the object
// stays with it; a thread that leases a second one while all are taken waits for itself.
class Connection {
public:
    // Throws Refusal: EIO when no database is open, EBUSY when no connection comes free within five seconds.
    Connection();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    soci::session& sql();

    // Connects anew; a transaction that was open on the connection is lost. Throws soci::soci_error.
    void reconnect();

private:
    size_t m_slot;
};

}  // namespace standin
