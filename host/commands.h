// What the program's commands do.
//
// Each works on the store that is open, prints its result on standard output and returns the exit status: 0, or 1 when
// the module answered with an error, whose envelope is then the output. Each throws std::exception, with a text for
// people, when it cannot do its work. One thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

namespace host {

// What the command line says; each command reads the part that is its own.
struct Options {
    std::string store = "sqlite:zem.db";
    std::vector<std::string> modules;  // files; none: webapi_zem_ou.so beside the program
    std::string account;               // name
    std::string listen = "127.0.0.1:8480";
    bool allowRemote = false;
    std::string file;
    std::string api, method;
    int64_t version = 1;
    std::string params;                                    // JSON text
    Json::Value jPaging = Json::Value(Json::objectValue);  // parameters of the one-level listing
    std::string action, kind;                              // "add" or "remove"; "group" or "server"
    int64_t nodeId = 0, policyId = 0;
};

int serveModules(const Options& options);   // until SIGTERM or SIGINT
int loadFleetFile(const Options& options);  // into a store that holds no fleet yet, all or nothing
int printToken(const Options& options);     // a new one for the account
int callMethod(const Options& options);
int printTree(const Options& options);
int printOneLevel(const Options& options);
int changeLink(const Options& options);

}  // namespace host
