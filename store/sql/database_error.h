// Turns the errors of SQLite and PostgreSQL into an error of the store.
#pragma once

#include <soci/soci.h>

#include "store/base/errors.h"

namespace store {

// The database failed. EBUSY: another transaction kept it locked, or it gave up this transaction because of another
// one. ENOMEM: it has no memory. EIO: anything else. The text is the database's report on one line, without the SQL
// that the report quotes.
struct DatabaseError : Error {
    explicit DatabaseError(const soci::soci_error& error);

    bool isWorthRepeating =
        false;  // the database gave up the transaction because of another one; a new try may succeed
    bool isOutcomeUnknown = false;  // the database does not know whether it committed the transaction
    bool isOtherFile = false;       // the file is none of SQLite
};

}  // namespace store
