// Reads the URL of a store.
#pragma once

#include <memory>
#include <string>

#include "store/sql/primary.h"

namespace store {

// The address of a database.
struct Address {
    bool isPostgres;
    std::string place;  // the URL for PostgreSQL's client library, or the absolute path of SQLite's file
    std::shared_ptr<Primary> pPrimary;  // null for SQLite
};

// Returns the address that "sqlite:PATH" or "postgresql://..." (also "postgres://...") names. A PostgreSQL URL gets the
// timeouts of base/timeouts.h as parameters, except for those that it sets itself. Throws std::runtime_error, with a
// text for people, for any other URL.
Address addressOf(const std::string& url);

}  // namespace store
