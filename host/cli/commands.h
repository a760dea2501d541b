// What the program's commands do.
//
// Each works on the store that is open, prints its result on standard output and returns the exit status: 0, or 1 when
// the module answered with an error, whose envelope is then the output, or there was nothing to take back. Each throws
// std::exception, with a text for people, when it cannot do its work. One thread at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "host/http/http_server.h"
#include "store/store.h"

namespace host {

// Files of the modules that a command loads; none: those that came with the program.
using ModulePaths = std::vector<std::string>;

// The console's page.
struct PageChoice {
    bool isServed = true;
    std::string folder;  // empty: the one that came with the program, if it did
};

// Until SIGTERM or SIGINT. Says on standard error how to fill a store that nobody can use yet.
int serveModules(const ModulePaths& modules, const PageChoice& page, const ServeOptions& options);

// Brings the store to what a fleet file says, all or nothing, and prints the plan with a count. path: the file's.
int applyFleetFile(const std::string& path, const store::ApplyOptions& options);

// Brings the groups and servers of an Ansible inventory into the store, likewise; what was chosen or left out goes to
// standard error. path: that of the output of ansible-inventory --list; "-" is standard input, here and above.
int importAnsibleInventory(const std::string& path, bool isDryRun);

// The whole store as a fleet file.
int exportFleet();

struct NewToken {
    std::string account;  // its name, here and below
    std::string label;
    int days = 0;  // until it expires; 0: never
};

// Makes it and prints it, this once.
int printToken(const NewToken& token);

// A table of the account's tokens, of everybody's when the name is empty, with times in UTC.
int printTokens(const std::string& account);

// Takes back the account's tokens with that label, all of them without one, and prints how many there were.
int revokeTokens(const std::string& account, const std::optional<std::string>& label);

struct MethodCall {
    std::string account;
    std::string api, method;
    int64_t version = 1;
    std::string params;  // text of a JSON object; empty: none
};

int callMethod(const ModulePaths& modules, const MethodCall& call);

// The tree that the account sees, drawn for people.
int printTree(const ModulePaths& modules, const std::string& account);

// The topmost groups that the account sees. jPaging: an object with those of the listing's parameters "offset",
// "limit", "sort_by" and "sort_direction" that are given.
int printOneLevel(const ModulePaths& modules, const std::string& account, const Json::Value& jPaging);

struct LinkChange {
    std::string action;  // "add" or "remove"
    std::string kind;    // of the node: "group" or "server"
    int64_t nodeId = 0;
    int64_t policyId = 0;
};

int changeLink(const ModulePaths& modules, const LinkChange& change);

}  // namespace host
