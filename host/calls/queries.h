// The paths that the server answers by itself, out of the store, instead of calling a module.
//
// Any thread may call these functions.
#pragma once

#include <map>
#include <set>
#include <string>

#include "host/calls/dispatch.h"
#include "store/store.h"

namespace host {

struct Query {
    const store::Account& account;                         // the sender's
    const std::string& tokenHash;                          // of the sender's token
    const std::map<std::string, std::string>& parameters;  // of the URL, decoded
};

struct QueryRow {
    const char* szPath;
    std::set<std::string> parameters;  // their names
    Answer (*pAnswer)(const Query&);   // throws std::runtime_error when the store fails
};

// Returns the row of that path, which is constant, or null.
const QueryRow* findQuery(const std::string& path);

}  // namespace host
