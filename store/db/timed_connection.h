// A connection to PostgreSQL for short questions that must not wait without a limit of time, as SOCI would.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include <libpq-fe.h>

namespace store {

// One connection to PostgreSQL, used by one thread at a time.
class TimedConnection {
public:
    // Connects, which takes at most the URL's connect_timeout for each address of the server. Throws
    // std::runtime_error with the reason, which may be empty.
    explicit TimedConnection(const std::string& url);

    // Executes the query. Returns the first value of its first row, an empty text when there is no row or the value is
    // NULL. Returns nothing when the query failed or was not answered within the limit; isIdle() tells which.
    std::optional<std::string> ask(const char* szQuery, std::chrono::milliseconds limit);

    // Whether the connection stands and waits for a query. A connection that is not idle after ask() is of no more use.
    bool isIdle() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Deleter {
        void operator()(PGconn* pConnection) const
        {
            PQfinish(pConnection);
        }
        void operator()(PGresult* pResult) const
        {
            PQclear(pResult);
        }
    };
    using Result = std::unique_ptr<PGresult, Deleter>;

    bool receive(Clock::time_point end);

    const std::unique_ptr<PGconn, Deleter> m_pConnection;
};

}  // namespace store
