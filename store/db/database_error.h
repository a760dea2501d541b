// The errors of the databases, as the store's own error.
#pragma once

#include <soci/soci.h>

#include "store/base/errors.h"

namespace store {

// The database failed. EBUSY: others kept it locked, or it gave up the transaction because of them. ENOMEM: it has no
// memory. EIO: anything else. The text says what it reports, on one line and without the SQL that it quotes.
struct DatabaseError : Error {
    explicit DatabaseError(const soci::soci_error& error);

    bool isWorthRepeating = false;  // the database gave up the transaction because of others: once more, it may succeed
    bool isOutcomeUnknown = false;  // the database does not know whether it committed the transaction
};

}  // namespace store
