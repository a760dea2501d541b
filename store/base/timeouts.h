// All waiting times of the store in one place: how long it waits for others before it gives up.
#pragma once

#include <chrono>

namespace store {

// --- Work that waits for other work

// For a free connection, for the turn to write and for a lock of the database; also how long a transaction that the
// database gave up is repeated.
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kFirstRetryPause{1};
constexpr std::chrono::milliseconds kLongestRetryPause{64};

// --- A database server that does not answer

// What libpq may take for each address of the server, and what all of connecting may take.
constexpr std::chrono::seconds kConnectTimeout{2};
constexpr std::chrono::seconds kWholeConnectTimeout{15};

// After this silence TCP asks whether the other side is still there, this often and this many times; and this is how
// long data that was sent may stay without an acknowledgement.
constexpr std::chrono::seconds kKeepaliveIdle{5};
constexpr std::chrono::seconds kKeepaliveInterval{2};
constexpr int kKeepaliveCount = 3;
constexpr std::chrono::milliseconds kUnacknowledgedTimeout{10000};

// The server itself ends a statement, and a transaction in which nothing happens, after this time. The longest
// statements, of fleets of a million nodes, take some ten seconds.
constexpr std::chrono::seconds kStatementTimeout{60};
constexpr std::chrono::seconds kIdleTransactionTimeout{60};

// A connection that was silent for longer is cut off: the server has ended its statement before.
constexpr std::chrono::seconds kLongestSilence{70};

// --- The health probe

constexpr std::chrono::seconds kProbeInterval{1};
constexpr std::chrono::milliseconds kProbeTimeout{2000};

}  // namespace store
