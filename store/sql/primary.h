// Finds the primary among the servers of a PostgreSQL database, and recognises a former one that came back.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <libpq-fe.h>

#include "store/base/errors.h"

namespace store {

// The server's end of a connection.
struct Backend {
    int64_t process = 0;   // its number there; 0: unknown
    int64_t timeline = 0;  // of the server's log, which each promotion of a standby raises; 0: unknown, or a standby
};

// The servers that one URL names, of which one at a time is the primary. Any thread may use the object.
class Primary {
public:
    explicit Primary(const std::string& url);

    size_t serverCount() const
    {
        return m_urls.size();
    }

    // Calls connect(url) with the URL of one server after the other until a call succeeds, and returns its result. The
    // first one is that of the last success. Throws as connect; Refusal EIO with all reasons when there are several
    // servers.
    template <typename Connect>
    auto connect(Connect&& connect)
    {
        const size_t first = m_first;
        std::string reasons;
        for (size_t i = 0; i < m_urls.size(); ++i) {
            const size_t server = (first + i) % m_urls.size();
            try {
                auto connection = connect(m_urls[server]);
                m_first = server;
                return connection;
            } catch (const std::runtime_error& error) {
                if (m_urls.size() == 1) {
                    throw;
                }
                reasons += (i == 0 ? "" : "; ") + std::string(error.what());
            }
        }
        throw Refusal(EIO, Reason::away, "", reasons);
    }

    // Lets the next connect() begin with another server, if there are several.
    void tryAnotherFirst() noexcept;

    // Asks a new connection for its backend. From then on the connections to servers with an earlier timeline are
    // former. Returns an empty backend where the database cannot tell. Throws Refusal EIO when the database does not
    // answer within kProbeTimeout, belongs to another cluster than before, or is a former primary or a standby of one.
    Backend accept(PGconn* pConnection);

    // Whether another server has become the primary since the connection with that backend was made.
    bool isFormer(const Backend& backend) const noexcept;

    // Names the process of a connection that stays open for as long as others are made; 0: there is none.
    void setOpenProcess(int64_t process) noexcept
    {
        m_openProcess = process;
    }

    // Throws Refusal EIO when the process, not 0, is that of the open connection: a pooler in between then gives a
    // process to a connection for one transaction only.
    void requireOwnProcess(int64_t process) const;

private:
    const std::vector<std::string> m_urls;  // one for each server
    std::atomic<size_t> m_first{0};
    std::mutex m_mutex;                  // guards the next member, and changes of the last one
    std::string m_cluster;               // the identifier that a primary and its standbys share; empty: none was seen
    std::atomic<int64_t> m_timeline{0};  // the highest that was seen
    std::atomic<int64_t> m_openProcess{0};
};

}  // namespace store
