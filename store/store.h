// The node store of this platform, on SQL: what a process needs beyond platform/velq_zem.h to open and fill it, to say
// who is calling and to hear why it refuses and what it changed, and the store's own ways to read texts from outside.
// The one header of the store that others include.
//
// Every function declared here may be called by any thread, unless it says otherwise, and throws std::runtime_error,
// with a text of one line for people, when the store fails or refuses; what it returns is the caller's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <json/value.h>

namespace store {

// What opening does where there is no store yet: make one, refuse, or open nothing. Commands that only read take
// existingOnly.
enum class OpenMode { createIfMissing, existingOnly, ifThere };

constexpr size_t kDefaultConnections = 8;

}  // namespace store

// Opens the one store of the process: "sqlite:PATH" or "postgresql://..." (also written "postgres://..."). Call it
// before any VELQZEM function and when no thread uses the store; opening another store closes the first. connections:
// how many threads can use the store at a time; at least one.
// Where the database is empty or missing, createIfMissing makes the store; a new SQLite file is its owner's alone
// (0600), its folder's owner's when root makes it, as is what SQLite puts beside it, and one that is a store loses the
// rights of group and others. A store of the version before is brought to this one, once, whoever else opens it at the
// same time. Refused, and left as it was: a database that holds other tables ("not a store"), a store of a version that
// this program does not know, and with existingOnly a database that is empty or missing; with ifThere that is left as
// it was too, and nothing is open then.
void VELQZEMStoreOpen(const std::string& url, store::OpenMode mode = store::OpenMode::createIfMissing,
                      size_t connections = store::kDefaultConnections);

// Closes the store; VELQZEM functions then fail with EIO. No thread may be using it.
void VELQZEMStoreClose();

namespace store {

constexpr int kServerType = 3;          // "node_type" of servers; groups are VELQ_ZEM_TYPE_OU
constexpr int kPolicyType = 4;          // "node_type" of policies
constexpr int kDelegateUserType = 2;    // "user_type" of a delegate: an account, the one kind there is
constexpr int kLoginUserType = 8;       // "user_type" of a listing's query: a logged-in account, the one kind there is
constexpr int kMaxGroupDepth = 128;     // levels of groups below the root
constexpr size_t kMaxNameLength = 255;  // of groups, servers and policies, in characters (code points)

// --- Texts from outside the process

// Whether the text is UTF-8 without a NUL: no overlong form, no surrogate, nothing above U+10FFFF, no sequence cut off.
bool isPlainText(std::string_view text);

// The number of characters (code points) of a text that is UTF-8.
size_t characterCount(std::string_view text);

// Reads a text that is one JSON object or array in UTF-8, with no comment, no name twice in one object and at most
// maxNesting levels of values inside one another. Returns true and sets jValue to what it read; or returns false,
// leaves jValue as it was and sets error to the reason, on one line for people. Throws only std::bad_alloc.
bool readUntrustedJson(std::string_view text, int maxNesting, Json::Value& jValue, std::string& error);

// --- The acting account

// Says on whose behalf the calling thread calls the store, for as long as the object lives; make one around each
// handler. Every writing VELQZEM function then checks, within its own transaction, that this account may make the
// change, and fails with EACCES and nothing changed where it may not; an administrator may do everything. Without a
// caller everything is allowed. Scopes nest: the inner one's caller counts, the outer one's again after it. A new scope
// forgets the thread's last refusal. Never throws; made and destroyed on one thread.
class ActingAccount {
public:
    // uid: of the account; one that no account has may change nothing.
    explicit ActingAccount(uint32_t uid);
    ~ActingAccount();
    ActingAccount(const ActingAccount&) = delete;

private:
    const std::optional<uint32_t> m_before;
};

// Why the calling thread's last VELQZEM call failed: one line for people ("parent_id: no group 99"), which it hands
// over; a second call gives an empty text. Every VELQZEM call that can fail begins by forgetting the text, so that one
// which succeeds leaves none; releasing records and lists leaves it as it is. Where the database failed, the text says
// so, and whether changes that were made on behalf of the caller before are there or may be. The text holds only what
// the caller's rights let it see; without a caller anything. It may hold names, with any character but a NUL.
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

// --- Fleets. A fleet file is a JSON object with the arrays "accounts", "groups", "policies" and "servers", each
// optional. A record is known by its kind and its "uid" or "id"; a member that it lacks has its default value.

struct ApplyOptions {
    bool dryRun = false;  // only plan
    bool prune = false;   // delete what the file lacks; the root group goes back to what it was at first
};

// Records, by what becomes of them.
struct PlanCount {
    size_t created = 0;
    size_t changed = 0;
    size_t deleted = 0;
};

// Takes a line of a plan, without a line end: "+ group 12 Web" for a record that is new, "~ server 4 address 192.0.2.1
// -> 192.0.2.7, name a -> b" for one that changes, "- policy 3" for one that is deleted. Texts are quoted as JSON where
// they hold more than visible characters, or could be taken for more than one value, and cut when they are long, so
// that a change shows what differs.
using PlanSink = std::function<void(const std::string& line)>;

// Called now and then with the records done so far and their total.
using FleetProgress = std::function<void(size_t done, size_t total)>;

// Brings the store to what the fleet file says, in one transaction: records that are new are created, those that differ
// are changed, and what the file lacks is deleted with prune, else kept. Groups and servers whose policies are others
// then are to fetch them anew. "mtime" and "revision" of a file count for new records alone, and are not compared. An
// equal store is left untouched. Tokens stay with their accounts.
// Refused, and nothing changed, with the place ("groups[3].parent_id: no group 9"): a file that breaks a rule of the
// store, by itself or together with what the store keeps, or has a key that the format does not; a fleet without an
// administrator.
// With dryRun nothing is written; with no store open the plan is that for an empty one.
// plan: called for each record that differs, in the order of kinds and identifiers, when the store is free again.
// progress: called within the transaction, from the start again when that is repeated. Both may be empty.
PlanCount applyFleet(const Json::Value& jFleet, const ApplyOptions& options, const PlanSink& plan = nullptr,
                     const FleetProgress& progress = nullptr);

// The same for a fleet that is made from the stored one, in the same transaction, and without deletions. revise: called
// with the stored fleet as exportFleet() writes it and the highest identifier that a group ever had, above which those
// of new groups belong, and once more when the database has the transaction repeated; returns the fleet to apply, and
// may throw std::runtime_error.
using Revision = std::function<Json::Value(const Json::Value& jStored, int64_t lastGroup)>;
PlanCount reviseFleet(const Revision& revise, bool dryRun, const PlanSink& plan = nullptr,
                      const FleetProgress& progress = nullptr);

// Gives the store as a fleet file, line by line without line ends: a record in each, in the order of kinds and
// identifiers, its members in one order without those at their default. The root group is group 0; tokens are left out.
// Throws also for a record that somebody has spoiled behind the store's back, and names it: what comes out can be
// applied. The sink is called when nothing is locked any more.
void exportFleet(const std::function<void(const std::string& line)>& sink);

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

}  // namespace store
