// Where a store is, as its URL says.
#pragma once

#include <string>

namespace store {

// A database: its file, or what PostgreSQL's client library takes.
struct Address {
    bool isPostgres;
    std::string place;
};

// The address that "sqlite:PATH" or "postgresql://..." (also "postgres://...") names; a path is made absolute. How long
// a connection is waited for, and when one that is silent counts as lost, is added where the URL does not say it.
// Throws std::runtime_error, with a text for people, when it is neither.
Address addressOf(const std::string& url);

}  // namespace store
