// Declares the store's timeouts: how long it waits before it gives up.
#pragma once

#include <chrono>

namespace store {

// --- Work that waits for other work

// Limits the wait for a free connection, for the turn to write and for a lock of the database, and the time for which a
// transaction that the database gave up is repeated.
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kFirstRetryPause{1};

// Limits the time for which a request lets the operator's commands go first.
constexpr std::chrono::seconds kOperatorPatience{1};
constexpr std::chrono::milliseconds kLongestRetryPause{64};

// --- A database server that does not answer

// Limits the time for connecting to each address of the server, which libpq applies, and the time for the whole
// attempt.
constexpr std::chrono::seconds kConnectTimeout{2};
constexpr std::chrono::seconds kWholeConnectTimeout{15};

// TCP keepalive: the silence before the first probe, the interval between probes, and the number of unanswered probes
// that ends the connection. The last constant limits how long sent data may stay unacknowledged.
constexpr std::chrono::seconds kKeepaliveIdle{5};
constexpr std::chrono::seconds kKeepaliveInterval{2};
constexpr int kKeepaliveCount = 3;
constexpr std::chrono::milliseconds kUnacknowledgedTimeout{10000};

// The server itself ends a statement, and a transaction in which nothing happens, after this time. The longest
// statements, of fleets of a million nodes, take some ten seconds.
constexpr std::chrono::seconds kStatementTimeout{45};
constexpr std::chrono::seconds kIdleTransactionTimeout{45};

// A leased connection that has begun no statement for longer is cut off: the server has ended its last statement by
// then, unless it is a commit that waits for a standby. Proxies commonly wait for an answer for 60 seconds.
constexpr std::chrono::seconds kLongestSilence{50};

// When a statement has no answer for longer, each probe checks whether the server still executes it.
constexpr std::chrono::seconds kSuspiciousSilence{2};

// --- The health probe

constexpr std::chrono::seconds kProbeInterval{1};
constexpr std::chrono::milliseconds kProbeTimeout{2000};

// --- The name of the store's state

// For the answer of the database and for the threads that ask before. After a lost connection, and after an answer that
// the database cannot name its state, the calls do without a name for a while.
constexpr std::chrono::milliseconds kStateTimeout{2000};
constexpr std::chrono::seconds kStateRetryPause{1};
constexpr std::chrono::seconds kNoStatePause{60};

// --- Notes of a token's last use

// Uses are collected for this time and then written together.
constexpr std::chrono::minutes kTokenUseInterval{10};

// --- Deletion of old changes from the history

// Each deletion ends the life of kept answers, so it is seldom tried. When there is much to delete, others may write
// between two steps. A step that would have to wait for a lock is put off.
constexpr std::chrono::minutes kPruningInterval{60};
constexpr std::chrono::milliseconds kPruningStepPause{100};
constexpr std::chrono::seconds kPruningRetryPause{5};

}  // namespace store
