// Names the present state of a database, so that answers can be kept for as long as the name stays the same.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include <soci/soci.h>

#include "store/db/timed_connection.h"
#include "store/sql/address.h"

namespace store {

// Reads the names over one connection of its own, which it makes at the first call and again when it was lost. Any
// thread may call it; the calls run one after the other.
class StateReader {
public:
    // Create the reader before the database's other connections, so that it notices when SQLite's file is replaced; and
    // destroy it before them, because the last connection to close tidies the file up, and the reader's must not write.
    explicit StateReader(Address address);
    StateReader(const StateReader&) = delete;
    StateReader& operator=(const StateReader&) = delete;

    // Returns the name; storeState() in store.h says what it promises. Returns an empty text, after at most the time
    // for connecting and twice kStateTimeout, when the database does not answer or has no means to name its state; for
    // some time after that the calls do not ask again.
    std::string read();

private:
    std::string readInTurn() noexcept;
    std::string readSqlite();
    std::string readPostgres();
    void takeNewTag();

    const Address m_address;
    struct stat m_file = {};  // SQLite's, as it was before any connection opened it
    std::mutex m_mutex;       // guards the next member; never held during a statement
    bool m_isInUse = false;
    std::condition_variable m_changed;
    std::string m_tag;  // another for each connection; this and the members below belong to the call that has the turn
    std::unique_ptr<soci::session> m_pSqlite;
    std::unique_ptr<TimedConnection> m_pPostgres;
    std::chrono::steady_clock::time_point m_nextTry{};
};

}  // namespace store
