// Runs the commands of the program, after the command line was read.
//
// The functions up to loadPage read files. Call them before the store is opened, because root may be unable to read
// other files from then on. Each of the others needs the open store. It prints its result on standard output and
// returns the exit status: 0 for success, 1 when the module answered with an error, whose envelope is then the output,
// or when there was nothing to revoke. Each throws std::exception, with a text for people, when it cannot do its work.
// One thread at a time may call them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "host/calls/module_loader.h"
#include "host/http/http_server.h"
#include "store/store.h"

namespace host {

// Loads the modules that came with the program, if withDefaults is true, and those at the paths.
ModuleSet loadModules(const std::vector<std::string>& paths, bool withDefaults);

// Reads a file of JSON. path: "-" for standard input.
Json::Value readJsonFile(const std::string& path);

struct ConsoleOptions {
    bool isServed = true;  // whether the server serves the console's page
    std::string folder;    // of the page; empty for the one that came with the program, if there is one
};

// Reads the files of the page. Says on standard error when the program came without one. Throws UsageError for a folder
// that holds none.
StaticFiles loadPage(const ConsoleOptions& console);

// Serves the modules over HTTP until SIGTERM or SIGINT. Explains on standard error how to fill a store without
// accounts.
int serveModules(const ModuleSet& modules, const StaticFiles& page, const ServeOptions& options);

// Brings the store to the state that a fleet file describes, all or nothing, and prints the plan and a count. path: of
// the file, for messages. createStore: called when no store is open, after the file was checked against an empty one.
int applyFleetFile(const Json::Value& jFleet, const std::string& path, const store::ApplyOptions& options,
                   const std::function<void()>& createStore);

// Merges the groups and servers of an Ansible inventory into the store, all or nothing, and prints the plan and a
// count; notes about choices and omissions go to standard error. jInventory: the output of
// ansible-inventory --list. path: of its file, for messages.
int importAnsibleInventory(const Json::Value& jInventory, const std::string& path, bool isDryRun);

// Prints the whole store as a fleet file.
int exportFleet();

// Copies the store into a new file beside it and prints the path. name: of the file, without a folder.
int backUpStore(const std::string& name);

struct NewToken {
    std::string account;  // name of the account
    std::string label;    // distinguishes it from the account's other tokens
    int days = 0;         // until it expires, 0 for never
};

// Prints a table of all accounts with their rights.
int listAccounts();

// Creates a token and prints it. It cannot be printed again, because the store keeps only its hash.
int createToken(const NewToken& token);

// Prints a table of the account's tokens, with times in UTC. account: its name, empty for all accounts.
int listTokens(const std::string& account);

// Revokes the account's tokens with that label, or all of them without a label, and prints how many there were.
int revokeTokens(const std::string& account, const std::optional<std::string>& label);

struct MethodCall {
    std::string account;  // name of the account that calls it
    std::string api, method;
    int64_t version = 1;
    std::string params;  // text of a JSON object, empty for no parameters
};

// Calls a method of a module and prints the envelope of its answer.
int callMethod(const ModuleSet& modules, const MethodCall& call);

// Draws the tree that the account sees. withIds: as for drawTree.
int printTree(const ModuleSet& modules, const std::string& account, bool withIds);

// Lists the topmost groups that the account sees and prints the envelope. jPaging: an object with any of the listing's
// parameters "offset", "limit", "sort_by" and "sort_direction".
int listTopGroups(const ModuleSet& modules, const std::string& account, const Json::Value& jPaging);

// Prints the changes that the filter selects, the newest first, one on a line; as JSON, an object on each line as
// docs/api.md describes it. The node may have what store::findRecord takes in place of the identifier. Throws
// std::invalid_argument for a node of a wrong form.
int printHistory(store::HistoryFilter filter, bool asJson);

struct LinkChange {
    std::string action;        // "add" or "remove"
    std::string kind;          // kind of the node: "group" or "server"
    std::string node, policy;  // as for store::findRecord
};

// Links a policy to a node or removes the link.
int changeLink(const ModuleSet& modules, const LinkChange& change);

}  // namespace host
