// A scriptable double of the whole platform, and of syslog, for tests of the module alone.
//
// It records every call in order, lets chosen calls fail, and accounts for every record, list and hash that it gives
// out. Nodes are plain JSON objects, so that a test can put any node into the store. One test at a time, one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <json/value.h>
#include <json/writer.h>

#include "platform/velq_core.h"
#include "platform/velq_webapi.h"
#include "platform/velq_zem.h"

namespace fake {

struct Delegate {
    int64_t userType;
    uint64_t ugid;
    std::string extraInfo;
};

struct Platform {
    // The store, by identifier; the lists keep the order of the arrays.
    std::map<int64_t, Json::Value> groups, servers;
    std::map<int64_t, std::pair<std::string, std::string>> policies;  // name, description
    std::map<std::pair<int, int64_t>, std::vector<Delegate>> delegates;
    Json::Value listedGroups{Json::arrayValue}, listedServers{Json::arrayValue}, listedPolicies{Json::arrayValue};
    std::map<int64_t, bool> mayManage;  // absent: yes
    Json::Value uiVersion;
    int64_t nextId = 100;
    std::function<void(Json::Value& jRecord)> onJsonToStruct;  // what an odd store does to a record in its hands

    // What happened.
    std::vector<std::string> calls;           // every call, "Name" or "Name argument"
    std::vector<std::string> fallible;        // the names of those that can fail, in order
    std::vector<std::string> logs;            // syslog lines, with places and process numbers made plain
    std::map<std::string, std::string> hash;  // what the query hash held when it was used

    // Which fallible calls fail, counted from 1, and the errno that they leave.
    size_t failFirst = 0, failLast = 0;
    int failErrno = 0;

    bool isQuiet = false;  // for measurements: no bookkeeping, no failures

    // What is held by the module at this moment.
    std::map<const void*, const char*> held;
};

extern Platform platform;

// A fresh platform and errno 0, with no terminal echo.
void reset();

typedef std::vector<std::string> Lines;

// The texts between semicolons.
Lines split(const std::string& text);

// The lines that the module is expected to write, as Platform::logs has them. err: the errno that words them.
std::string failedCall(const std::string& expr, int err, const std::string& file = "webapi_zem_ou.cpp");
std::string badParameter(int err, const std::string& file = "webapi_zem_ou.cpp");
std::string accessDenied(const std::string& expr);
Lines mallocHash(int err);

// The value as JSON text on one line.
std::string compact(const Json::Value& jValue);

// The JSON value of a text with ' in place of ".
Json::Value json(std::string text);

// The outcome of one handler call as text: "ok DATA" or "error CODE".
typedef void (*Handler)(VELQ::APIRequest*, VELQ::APIResponse*);
std::string call(Handler handler, const Json::Value& jParams, uint32_t uid = 1000);

// Lets every fallible platform call of a scenario fail in turn, alone and together with all that follow, with errno 0,
// 2 and 13. expected: by the name of the failing call, the outcome and the log lines for it failing alone. After each
// round everything must have been released, and the scenario must succeed again.
typedef std::function<Lines(int err)> Logs;
struct Outcome {
    std::string result;
    Logs logs;
};
Logs noLines();
Logs failedCalls(const Lines& exprs, const std::string& file = "webapi_zem_ou.cpp");
Logs deniedAccess(const std::string& expr);
void sweep(const std::function<void()>& prepare, const std::function<std::string()>& run,
           const std::map<std::string, Outcome>& expected);

}  // namespace fake
