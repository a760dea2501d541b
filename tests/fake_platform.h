// A scriptable double of the whole platform, and of syslog, for tests of the module alone.
//
// It records every call in order, lets chosen calls fail, and accounts for every record, list and hash that it gives
// out: one that is released twice fails the test at once, one that is kept does so at the next reset(). It is as hard
// on the module as the platform's contract allows: a hash's handle changes with each value, lists of delegates do not
// outlive the next one, syslog changes errno. Nodes are plain JSON values, so that a test can put any node into the
// store. One test at a time, one thread.
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
    // The store, by identifier; the lists keep the order of the arrays.
    std::map<int64_t, Json::Value> groups, servers;
    std::map<int64_t, std::pair<std::string, std::string>> policies;  // name, description
    std::map<std::pair<int, int64_t>, std::vector<_tag_velq_zem_delegate_>> delegates;
    Json::Value listedGroups{Json::arrayValue}, listedServers{Json::arrayValue}, listedPolicies{Json::arrayValue};
    std::set<int64_t> refused;  // groups that nobody may manage
    Json::Value freshServer = test::json("{'node_type':3}");
    Json::Value uiVersion = test::json("{'major':3}");
    int64_t nextId = 100;
    std::function<void(Json::Value& jRecord)> onJsonToStruct;  // what an odd store does to a record in its hands

    // What happened. A call is noted as "Name argument ...", without the platform's prefixes.
    Lines calls;
    Lines fallible;       // those that can fail
    Lines logs;           // syslog lines, in their short form
    std::string rawLogs;  // syslog lines as they are

    // Which fallible calls fail, counted from 1, and the errno that they leave; or they throw that memory ran out.
    size_t failFirst = 0, failLast = 0;
    int failErrno = 0;
    bool isThrowing = false;

    bool isQuiet = false;  // for measurements: no bookkeeping, no failures

    std::set<const void*> held;  // what the module has to release
};

extern Platform platform;

// A fresh platform and errno 0, with no terminal echo.
void reset();

// The short form of a family's line: its text with errno behind it, but for 0: "Failed [0 > f()] (13)". "lib: " stands
// before a line of the link functions, "denied: " before one that is only written when access is denied. The double
// checks the place in front, which the short form lacks.
std::string withErrno(const std::string& text, int err);

// The texts between semicolons.
Lines split(const std::string& text);

// What a handler answers, as text with ' in place of ": "ok DATA" or "error CODE".
std::string call(test::Handler handler, const Json::Value& jParams, uint32_t uid = 1000);
std::string call(const std::string& method, const Json::Value& jParams, uint32_t uid = 1000);

}  // namespace fake
