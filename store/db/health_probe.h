// Checks whether a database answers.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "store/db/timed_connection.h"
#include "store/sql/primary.h"

namespace store {

// Returns when the database in SQLite's file has answered. Throws std::exception with a text for people when it does
// not do so within kProbeTimeout.
void probeSqlite(const std::string& path);

// Probes the primary of a PostgreSQL database over a connection of its own. One thread at a time may use the object.
class PrimaryProbe {
public:
    explicit PrimaryProbe(std::shared_ptr<Primary> pPrimary) : m_pPrimary(std::move(pPrimary)) {}

    // Returns when the database has answered within kProbeTimeout. Makes the connection anew when it was lost; one that
    // was silent for so long is closed, and the next call makes it anew. Throws std::exception with a text for people
    // when there is no answer, or when a pooler gives connections a process for one transaction only. A call takes at
    // most the time for connecting and twice kProbeTimeout.
    void probe();

    // Looks whether another server has become the primary, by making the connection anew. Keeps the present one when
    // that fails.
    void lookForPrimary() noexcept;

    // Returns the processes of the server that execute a statement, nothing when it does not tell.
    std::optional<std::set<int64_t>> workingProcesses();

    // Ends the process of the server if it waits within a transaction, which may hold locks. Ignores failures.
    void endTransactionOf(int64_t process);

private:
    bool answers();
    void take(std::unique_ptr<TimedConnection> pConnection) noexcept;

    const std::shared_ptr<Primary> m_pPrimary;
    std::unique_ptr<TimedConnection> m_pConnection;  // null: lost
};

}  // namespace store
