// The node store of this platform, on SQL: what a process needs beyond platform/velq_zem.h to open and fill it, to say
// who is calling and to hear why it refuses and what it changed, and the store's own ways to read texts from outside.
// The one header of the store that others include.
//
// Every function declared here may be called by any thread, unless it says otherwise, and throws std::runtime_error,
// with a text of one line for people, when the store fails or refuses; what it returns is the caller's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "standin/store/json_reader.h"
#include "standin/store/utf8.h"

namespace standin {

// What opening does where there is no store yet: make one, or refuse. Commands that only read take existingOnly.
enum class OpenMode { createIfMissing, existingOnly };

}  // namespace standin

// Opens the one store of the process: "sqlite:PATH" or "postgresql://..." (also written "postgres://..."). Call it
// before any VELQZEM function and when no thread uses the store; opening another store closes the first.
// Where the database is empty or missing, createIfMissing makes the store; a new SQLite file is its owner's alone
// (0600), as is what SQLite puts beside it, and one that is a store loses the rights of group and others. A store of
// the version before is brought to this one, once, whoever else opens it at the same time. Refused, and left as it was:
// a database that holds other tables ("not a store"), a store of a version that this program does not know, and with
// existingOnly a database that is empty or missing.
void VELQZEMStoreOpen(const std::string& url, standin::OpenMode mode = standin::OpenMode::createIfMissing);

// Closes the store; VELQZEM functions then fail with EIO. No thread may be using it.
void VELQZEMStoreClose();

namespace standin {

constexpr int kServerType = 3;        // "node_type" of servers; groups are VELQ_ZEM_TYPE_OU
constexpr int kPolicyType = 4;        // "node_type" of policies
constexpr int kDelegateUserType = 2;  // "user_type" of a delegate: an account, the one kind there is
constexpr int kLoginUserType = 8;     // "user_type" of a listing's query: a logged-in account, the one kind there is
constexpr int kMaxGroupDepth = 128;   // levels of groups below the root
constexpr int kMaxNameLength = 255;   // of groups, servers and policies, in characters (code points)

// --- The caller

// Says on whose behalf the calling thread calls the store, for as long as the object lives; make one around each
// handler. Every writing VELQZEM function then checks, within its own transaction, that this account may make the
// change, and fails with EACCES and nothing changed where it may not; an administrator may do everything. Without a
// caller everything is allowed. Scopes nest: the inner one's caller counts, the outer one's again after it. A new scope
// forgets the thread's last refusal. Never throws; made and destroyed on one thread.
class CallerScope {
public:
    // uid: of the account; one that no account has may change nothing.
    explicit CallerScope(uint32_t uid);
    ~CallerScope();
    CallerScope(const CallerScope&) = delete;

private:
    const std::optional<uint32_t> m_before;
};

// Why the calling thread's last VELQZEM call failed: one line for people ("parent_id: no group 99"), which it hands
// over; a second call gives an empty text. Every VELQZEM call that can fail begins by forgetting the text, so that one
// which succeeds leaves none; releasing records and lists leaves it as it is. The text holds only what the caller's
// rights let it see; without a caller anything. It may hold names, with any character but a NUL.
std::string takeRefusal();

// --- Accounts

struct Account {
    uint32_t uid = 0;
    std::string name;
};

// The account of that name; nothing when there is none.
std::optional<Account> findAccountByName(const std::string& name);

// Whether the store holds any account; one that holds none can be used by nobody.
bool hasAccounts();

// --- Bearer tokens. An account may have any number of them; the store keeps only their hashes.

// One token, as lists show it. Times are in seconds since 1970.
struct Token {
    std::string account;   // name of the account
    std::string label;     // what tells it from the account's others; may be empty, several may have the same
    int64_t made = 0;      // 0: not known, the token is from a store of the version before
    int64_t expires = 0;   // from then on it is not found; 0: never
    int64_t lastUsed = 0;  // up to a minute before the last use; 0: never
};

// Gives the account another token. label: UTF-8, at most 255 characters, none of them a control character. lifetime:
// seconds from now, 0 for no end. Throws also for an unknown account, and a hash that is there already.
void addToken(uint32_t uid, const std::string& tokenHash, const std::string& label, int64_t lifetime);

// The tokens of the account, of all accounts without one, ordered by account name and time made; expired ones too.
std::vector<Token> listTokens(std::optional<uint32_t> uid);

// Takes back the account's tokens with that label, all of the account's without one. Returns how many there were.
int64_t revokeTokens(uint32_t uid, const std::optional<std::string>& label);

// The account that has the token with that hash; nothing when there is none or the token has expired. Notes the use,
// at most once a minute for each token, if the store can be written at once: one that cannot does not fail the search.
std::optional<Account> findAccountByToken(const std::string& tokenHash);

// --- Fleets

// Stores a fleet file's accounts, groups, policies and servers, all or nothing, into a store that holds none yet. The
// whole fleet is checked first; the exception's text says what is wrong and where ("groups[3].parent_id: ...").
// progress: called now and then with the records stored so far and their total; may be empty.
void loadFleet(const Json::Value& jFleet, const std::function<void(size_t done, size_t total)>& progress);

// --- For the operator

// Has the sink told of every change of a group or server that a VELQZEM function committed, one line each, without a
// line end: the caller's name, "-" without a caller; the kind; the identifier; what became of it. Examples: "ann group
// 4 desc,linked_gpo", "ann group 4 delegate", "admin group 4 deleted", "- group 4 created", "admin server 9 parent_id".
// A call that leaves everything as it was, and a notice to servers, give no line. An account name with other than
// visible ASCII characters is written as "uid=" and the uid, so that no name can make a line look like another.
// sink: empty for none, as at first. It is called on the thread of the change, after its commit, by several threads at
// once and not always in the order of the commits; what it throws is lost. Set it when no thread uses the store.
void setChangeSink(std::function<void(const std::string& line)> sink);

// Whether the store answers: another thread asks it every second, and this returns at once what came of the last time.
// True while it has not been asked yet, false when no store is open.
bool isStoreAnswering();

// Has the sink told when the store stops answering, and why, and when it answers again, one line each, without a line
// end and with any bytes: "the store does not answer: ...", "the store answers again after 7 s". sink: empty for none,
// as at first; called on a thread of the store's own, one call at a time. What it throws is lost.
void setOutageSink(std::function<void(const std::string& line)> sink);

// SQL statements that the calling thread has executed so far, transaction statements included.
uint64_t statementCount();

}  // namespace standin
