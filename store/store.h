// The node store of this platform, on SQL. This header is the only one of the store that others include. It declares
// the functions that a process needs beyond platform/velq_zem.h: opening and filling the store, the acting account,
// accounts and tokens, logs and health, and the reading of texts from outside the process.
//
// Any thread may call these functions, unless a comment says otherwise. They throw std::runtime_error, with a text of
// one line for people, when the store fails or refuses. The caller owns what they return.
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

// The behaviour of VELQZEMStoreOpen when no store exists: create one, refuse, or open nothing.
enum class OpenMode { createIfMissing, existingOnly, ifThere };

constexpr size_t kDefaultConnections = 8;

}  // namespace store

// Opens the one store of the process. Call it before any VELQZEM function, while no thread uses the store. It closes
// the store that was open before.
//
// url: "sqlite:PATH" or "postgresql://..." (also "postgres://..."). connections: the number of threads that can use the
// store at a time; at least one.
//
// With createIfMissing, an empty or missing database becomes a store. A store of an earlier schema version is
// upgraded once, even when several processes open it at the same time. SQLite's files are private to their owner: a new
// file gets mode 0600, an existing store loses the rights of group and others.
//
// When root opens a store on SQLite in a folder of another account, the process becomes that account for good, and the
// folder becomes the root of its file system. Open or load before what else the process needs from the file system.
//
// Refuses and changes nothing: a database that holds other tables ("not a store"), a store of an unknown version, and,
// with existingOnly, an empty or missing database. With ifThere an empty or missing database is no error, and no store
// is open afterwards.
void VELQZEMStoreOpen(const std::string& url, store::OpenMode mode = store::OpenMode::createIfMissing,
                      size_t connections = store::kDefaultConnections);

// Closes the store, after the notes of the tokens' last uses are written if that is possible without waiting for
// others. VELQZEM functions fail with EIO from then on. No thread may be using the store.
void VELQZEMStoreClose();

namespace store {

constexpr int kServerType = 3;          // "node_type" of servers; groups are VELQ_ZEM_TYPE_OU
constexpr int kPolicyType = 4;          // "node_type" of policies
constexpr int kDelegateUserType = 2;    // "user_type" of a delegate: an account; there is no other kind
constexpr int kLoginUserType = 8;       // "user_type" of a listing's query: a logged-in account; there is no other kind
constexpr int kMaxGroupDepth = 128;     // levels of groups below the root
constexpr size_t kMaxNameLength = 255;  // of groups, servers and policies, in characters (code points)

// --- Texts from outside the process

// Whether the text is UTF-8 without a NUL: no overlong form, no surrogate, nothing above U+10FFFF, no sequence cut off.
bool isPlainText(std::string_view text);

// Returns the number of characters (code points) of a text that is UTF-8.
size_t characterCount(std::string_view text);

// Returns the text for people to read, in a terminal or a log: it cannot control a terminal, hide a part of itself or
// look like another line. Controls (line ends too), characters that have no width or change the direction of text, and
// spaces other than U+0020 are written as \uXXXX, so that a JSON text keeps its meaning; so are the ASCII characters in
// others. Bytes that are not UTF-8 are written as \ufffd.
std::string escapeUnseen(std::string_view text, std::string_view others = "");

// Returns how many values the JSON text contains, an empty array or object counted twice, without reading them: it
// counts what begins the first member or element and what separates the others. A text that is no JSON gives any
// number.
size_t countJsonValues(std::string_view text);

// Reads a text that is one JSON object or array in UTF-8, with no comment, no name twice in one object and at most
// maxNesting levels of values inside one another. Returns true and sets jValue to the parsed value; or returns false,
// leaves jValue as it was and sets error to the reason, on one line for people. Throws only std::bad_alloc.
bool readUntrustedJson(std::string_view text, int maxNesting, Json::Value& jValue, std::string& error);

// --- The acting account

// The conditions on which a request goes on.
struct RequestWatch {
    // A token that has to be the account's, not expired and not revoked, at each change; empty: none has to.
    std::string tokenHash{};
    // Returns why the request must end before its next change, an empty text while it may go on. Called on the thread
    // of the request, within transactions. It may be empty.
    std::function<std::string()> whyToStop{};
};

// While the object lives, the calling thread calls the store on behalf of an account; make one around each handler.
// Every writing VELQZEM function then checks, within its own transaction, whether the account may make the change. If
// it may not, the function fails with EACCES and changes nothing. An administrator may do everything; so may a thread
// without an acting account. Objects nest: the inner account counts until its object is destroyed. A new object clears
// the thread's last refusal. Never throws. Create and destroy it on the same thread.
class ActingAccount {
public:
    // uid: the account's; with a uid that no account has, every change is refused.
    explicit ActingAccount(uint32_t uid);

    // For a request, which may make many changes. When it may not go on, changes and VELQZEMOuCanManagedByUid fail with
    // ECANCELED, and the refusal says how many changes it has made; notices to servers of these changes do not fail.
    // Only its first change waits until it is on disk: call makeDurable() before you tell anyone of the others.
    //
    // watch: outlives the object.
    ActingAccount(uint32_t uid, const RequestWatch& watch);
    ~ActingAccount();
    ActingAccount(const ActingAccount&) = delete;

    // Waits until all changes of the account are on disk. Returns 0, and leaves the thread's refusal as it is; or -1
    // with errno and the refusal set, when some of the changes may be lost. Costs nothing when none is left to wait
    // for.
    int makeDurable() noexcept;

private:
    const std::optional<uint32_t> m_uidBefore;
    const RequestWatch* const m_pWatchBefore;
};

// Why a call failed.
struct Cause {
    std::string reason;  // one word for programs, which docs/api.md lists, such as "unknown_node"
    std::string member;  // the path of the member that is at fault, such as "delegate[1].ugid"; empty when none is
    std::string text;    // one line for people, such as "parent_id: no group 99"
};

// Returns why the calling thread's last VELQZEM call failed, and clears it. Returns empty texts when that call
// succeeded: every VELQZEM call that can fail clears them first; releasing records and lists does not. When the
// database failed, the text also says whether earlier changes of the same acting account stay. The text names only
// records that the acting account may see. It may contain names, and so any character except a NUL.
Cause takeRefusal();

// --- Accounts

struct Account {
    uint32_t uid = 0;
    std::string name;
};

// Returns the account of that name, nothing when there is none.
std::optional<Account> findAccountByName(const std::string& name);

// Returns accounts in the order of their names: those whose name contains the text, with ASCII letters in either case,
// and those whose uid begins with it in decimal; with an empty text, all. Returns at most kMaxFoundAccounts; an account
// with exactly that uid comes first. Returns nothing when the account askingUid manages no group.
constexpr size_t kMaxFoundAccounts = 50;
std::optional<std::vector<Account>> searchAccounts(uint32_t askingUid, const std::string& text);

// What an account may do.
struct AccountRights {
    Account account;
    bool isAdministrator = false;
    int64_t groups = 0;  // that are delegated to it
};

// Returns all accounts in the order of their names.
std::vector<AccountRights> listAccounts();

// Whether the store has any account. Without one, no token can be made and no request is accepted.
bool hasAccounts();

// --- Names

// Returns the identifier of a record. kind: "group", "server", "policy" or "account". text: the identifier
// in digits; or the path of a group, as the history has it ("Web/Stage", with "\/" for a slash in a name, and "/" for
// the root group); or the name of a server, policy or account. Throws when no record has this path or name, or when
// several have this name. Does not check whether a record has the identifier.
int64_t findRecord(const std::string& kind, const std::string& text);

// --- Bearer tokens. An account may have any number of tokens; the store keeps only their hashes.

// One token, as lists show it. Times are in seconds since 1970.
struct Token {
    std::string account;   // name of the account
    std::string label;     // for people; may be empty, and several tokens may have the same
    int64_t made = 0;      // 0: unknown, because an earlier schema version did not store it
    int64_t expires = 0;   // from this time on the token is invalid; 0: never
    int64_t lastUsed = 0;  // at most ten minutes before the real last use; 0: never
};

// Stores another token of the account. label: UTF-8, at most 255 characters, no control characters. lifetime: seconds
// from now until the token expires, 0 for never. Throws also when the account is unknown or the hash already exists.
void addToken(uint32_t uid, const std::string& tokenHash, const std::string& label, int64_t lifetime);

// Returns the tokens of the account, or of all accounts without a uid, ordered by account name and time of creation.
// Expired tokens are included.
std::vector<Token> listTokens(std::optional<uint32_t> uid);

// Deletes the account's tokens with that label, or all of its tokens without a label. Returns the number of tokens.
int64_t revokeTokens(uint32_t uid, const std::optional<std::string>& label);

// Returns the account of the token with that hash, nothing when there is no such token or it has expired. Notes
// the time of use. A thread of the store writes the notes every ten minutes if it can do so without waiting for others;
// closing the store writes those that are left.
std::optional<Account> findAccountByToken(const std::string& tokenHash);

// What a valid token stands for.
struct Session {
    Account account;
    bool isAdministrator = false;
    std::string label;    // of the token, as in Token
    int64_t expires = 0;  // as in Token
};

// Returns what the token with that hash stands for, nothing when there is no such token or it has expired.
std::optional<Session> findSession(const std::string& tokenHash);

// --- Fleets. A fleet file is a JSON object with the arrays "accounts", "groups", "policies" and "servers", each
// optional. A record is identified by its kind and its "uid" or "id". A missing member has its default value.

struct ApplyOptions {
    bool dryRun = false;  // plan, but write nothing
    bool prune = false;   // delete records that the file lacks, and reset a root group that it lacks
};

// The numbers of records that a plan creates, changes and deletes.
struct PlanCount {
    size_t created = 0;
    size_t changed = 0;
    size_t deleted = 0;
};

// Takes a line of a plan, without a line end: "+ group 12 Web" for a new record, "~ server 4 a: address
// 192.0.2.1 -> 192.0.2.7, name a -> b" for a changed one, "- policy 3 Base" for a deleted one. A text is quoted as JSON
// when it contains invisible characters or could be read as several values. A long text is cut so that the difference
// shows.
using PlanSink = std::function<void(const std::string& line)>;

// Called from time to time with the number of records written so far and their total.
using FleetProgress = std::function<void(size_t done, size_t total)>;

// Brings the store to the state that the fleet file describes, in one transaction: creates new records and changes
// those that differ. Records that the file lacks are deleted with prune and kept without. Groups and servers whose
// policies change get a notice to fetch them again. "mtime" and "revision" in a file count for new records only and are
// not compared. A store that is equal already is not written. Tokens stay with their accounts.
//
// Refuses, and changes nothing, with the place ("groups[3].parent_id: no group 9"): a file that breaks a rule of the
// store, alone or together with the records that the store keeps; an unknown key; a fleet without an administrator.
//
// With dryRun nothing is written; if no store is open, the plan is for an empty one. plan: called for each record that
// differs, in the order of kinds and identifiers, after the transaction. progress: called within the transaction; it
// starts again when the transaction is repeated. Both may be empty.
PlanCount applyFleet(const Json::Value& jFleet, const ApplyOptions& options, const PlanSink& plan = nullptr,
                     const FleetProgress& progress = nullptr);

// Like applyFleet, for a fleet that is derived from the stored one in the same transaction, and without deletions.
// revise: called with the stored fleet as exportFleet() writes it, and with the highest identifier that a group ever
// had; new groups must have higher ones. Returns the fleet to apply; may throw std::runtime_error. It is called again
// when the transaction is repeated.
using Revision = std::function<Json::Value(const Json::Value& jStored, int64_t lastGroup)>;
PlanCount reviseFleet(const Revision& revise, bool dryRun, const PlanSink& plan = nullptr,
                      const FleetProgress& progress = nullptr);

// Passes the whole store as a fleet file to the sink, line by line without line ends. Each record is one line, in the
// order of kinds and identifiers; members at their default are left out. The root group is group 0. Tokens are left
// out. The result can always be applied to this store: a record that was damaged by direct SQL is named in an error
// instead. The sink is called after the transaction.
void exportFleet(const std::function<void(const std::string& line)>& sink);

// --- Quota

// What the groups and servers that one delegate manages may hold together; 0: any number.
struct Quota {
    int64_t groups = 0;
    int64_t bytes = 0;  // of the texts of their records
};

// Refuses each later change with which an account that is no administrator would exceed the quota. What exceeds it
// already stays, and may become less. Without the call there is none. Set it while no thread uses the store.
void setQuota(const Quota& quota);

// --- History. Each change of a group, server, policy or account that is committed is recorded in the same transaction.

// Sets the name of the command as which this process makes changes without an acting account; empty at first. Set it
// while no thread uses the store.
void setCommand(const std::string& name);

// Keeps changes for that many days: a thread of the store deletes older ones, now and every hour, a few at a time. With
// 0 this process records none, and those of others are deleted as well. Without the call, all are recorded and none is
// deleted. Call it once, when the store is open and no other thread uses it; closing the store ends the thread.
void keepHistory(int64_t days);

struct HistoryFilter {
    std::string node = "";  // the changes of one record: "group:12", "server:4", "policy:3" or "account:7"; empty: all
    std::string before = "";  // "next" of the page before; empty: the first page
    std::string by = "";  // who made them: the name of an account at that time, "uid=7" or a command; empty: anybody
    int64_t since = 0;    // time of the earliest change, in seconds since 1970
};

// Returns a page of at most 50 changes, the newest first: {"changes":[...],"next":TEXT}; next is null on the last page.
// Newer changes do not move what the next pages hold. docs/api.md describes the members of a change.
//
// askingUid: the account that asks; nothing: everything may be seen. Returns nothing when the account may not see these
// changes. An administrator sees all, any other account those of a group, server or policy that it manages now.
//
// Throws std::invalid_argument, with a text for people, when node or before is malformed.
std::optional<Json::Value> readHistory(std::optional<uint32_t> askingUid, const HistoryFilter& filter);

// --- For the operator

// Sets the sink for the log of changes: it gets one line, without a line end, for each change of a group or server that
// a VELQZEM function committed. A line holds the acting account's name ("-" without one), the kind, the identifier and
// the change: "ann group 4 desc,linked_gpo", "ann group 4 delegate", "admin group 4 deleted", "- group 4 created",
// "admin server 9 parent_id". Calls that change nothing, and notices to servers, give no line. A name with other than
// visible ASCII characters is written as "uid=" and the uid, so that no name can imitate another line.
//
// sink: empty for none, as at the start. It is called after the commit on the thread that made the change, by several
// threads at once, and not always in the order of the commits. Its exceptions are ignored. Set it while no thread uses
// the store.
void setChangeSink(std::function<void(const std::string& line)> sink);

// Returns the result of the last health probe, without waiting; a thread of the store sends one every second. True
// before the first probe, false when no store is open.
bool isStoreAnswering();

// Returns how often the store has stopped answering since the process started.
uint64_t outageCount();

// Returns how many transactions of this process the database rolled back, which were then repeated.
uint64_t repeatedTransactionCount();

// Returns a name for the store's present state. Two equal names mean that no change was committed in between, by this
// process or any other; so an answer that was made between two calls with equal names is still true while a third call
// returns that name. Changes of a token's last use do not count. Names of different processes may differ for the same
// state. Empty when the name is unknown: no store is open, the store does not answer, or the database has no means for
// it. Throws only std::bad_alloc. The call is cheap: at most one short statement on a connection of its own.
std::string storeState();

// Sets the sink for the log of outages: it gets one line, without a line end, when the store stops answering ("the
// store does not answer: " and the reason, which may contain any bytes), one when it answers again ("the store answers
// again after 7 s"), and one for a single connection that is closed because it does not answer. sink: empty for none,
// as at the start. It is called on a thread of the store, one call at a time. Its exceptions are ignored.
void setOutageSink(std::function<void(const std::string& line)> sink);

// Copies the store into a new file beside it, as it is at one moment, while this and other processes go on using it.
// The file appears once it is complete, with mode 0600; it is a store itself, with the accounts' tokens. name: of the
// file, without a folder. Returns its path. On PostgreSQL it throws an error that names the database's own program for
// backups.
std::string backUp(const std::string& name);

// Returns the number of SQL statements that the calling thread has executed, including those of transactions.
uint64_t statementCount();

}  // namespace store
