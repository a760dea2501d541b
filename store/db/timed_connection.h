// A connection to PostgreSQL for short questions that must not wait without a limit of time, as SOCI would.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <libpq-fe.h>

#include "store/sql/primary.h"

namespace store {

// One connection to the primary, used by one thread at a time.
class TimedConnection {
public:
    // Connects, which takes at most the URL's connect_timeout for each address of each server. Throws
    // std::runtime_error with the reason, which may be empty.
    explicit TimedConnection(Primary& primary);

    // The backend as it was when the connection was made.
    const Backend& backend() const
    {
        return m_backend;
    }

    // As ask() of sql/postgres_connection.h; isIdle() tells whether a query failed or was not answered.
    std::optional<std::string> ask(const char* szQuery, std::chrono::milliseconds limit);

    // Whether the connection stands and waits for a query. A connection that is not idle after ask() is of no more use.
    bool isIdle() const;

    // Whether the connection has ended. One that is only silent has not.
    bool isLost() const;

private:
    struct Deleter {
        void operator()(PGconn* pConnection) const
        {
            PQfinish(pConnection);
        }
    };
    using Handle = std::unique_ptr<PGconn, Deleter>;

    static Handle connect(const std::string& url);

    Backend m_backend;  // declared first: connecting sets it
    const Handle m_pConnection;
};

}  // namespace store
