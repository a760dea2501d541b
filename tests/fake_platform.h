// A scriptable fake of the whole platform and of syslog, for tests of the module alone.
//
// It records every call in order, lets chosen calls fail, and tracks every record, list and hash that it returns: a
// second release fails the test at once, a missing one at the next reset(). It does whatever the platform's contract
// allows: the pointer to a hash changes with each value, a list of delegates becomes invalid with the next one, syslog
// changes errno. Nodes are JSON values, so that a test can put any node into the store. Only one thread may use it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "platform/velq_zem.h"
#include "tests/support.h"

namespace fake {

using Lines = std::vector<std::string>;

struct Platform {
    // Contents of the store by identifier, and the results of listings, in order.
    std::map<int64_t, Json::Value> groups, servers;
    std::map<int64_t, std::pair<std::string, std::string>> policies;  // name, description
    std::map<std::pair<int, int64_t>, std::vector<_tag_velq_zem_delegate_>> delegates;
    Json::Value listedGroups{Json::arrayValue}, listedServers{Json::arrayValue}, listedPolicies{Json::arrayValue};
    std::set<int64_t> refused;  // groups that no caller may manage
    Json::Value freshServer = test::json("{'node_type':3}");
    Json::Value uiVersion = test::json("{'major':3}");
    int64_t nextId = 100;
    std::function<void(Json::Value& jRecord)> onConversion;  // what a conversion does to the record

    // The calls and log lines so far. A call is recorded as "Name argument ...", without the platform's prefixes.
    Lines calls;
    Lines fallible;       // the calls that can fail
    Lines logs;           // syslog lines in short form
    std::string rawLogs;  // syslog lines in full

    // The first and last fallible call to fail, counted from 1, and the errno to set; or they throw std::bad_alloc.
    size_t failFirst = 0, failLast = 0;
    int failErrno = 0;
    bool isThrowing = false;

    bool isQuiet = false;  // no recording, no failures: for tests with very many calls

    std::set<const void*> held;  // objects that the module must release
};

extern Platform platform;

// Resets the platform to its initial state, errno to 0 and giTerminalDebug to 0.
void reset();

// Returns the short form of a failure line: its text followed by errno, unless that is 0: "Failed [0 > f()] (13)". A
// line of the link functions begins with "lib: ", one that is written only with errno EACCES with "denied: ". The short
// form lacks the source file and line, which the fake checks itself.
std::string withErrno(const std::string& text, int err);

// Splits a text at its semicolons.
Lines split(const std::string& text);

// Calls a handler and returns its answer as "ok DATA" or "error CODE", with ' in place of ".
std::string call(test::Handler handler, const Json::Value& jParams, uint32_t uid = 1000);
std::string call(const std::string& method, const Json::Value& jParams, uint32_t uid = 1000);

}  // namespace fake
