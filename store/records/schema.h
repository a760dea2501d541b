// Creates and upgrades the tables of the store.
#pragma once

#include "store/store.h"

namespace store {

// Makes the open database a store of this program's version: creates the tables when it is empty and the mode is
// createIfMissing, and upgrades a store of an earlier version. Throws NoStore when the database is empty in another
// mode; std::runtime_error, with a text for people and with nothing changed, when it holds something else or a version
// that this program does not know; DatabaseError for an error of the database.
void prepareSchema(OpenMode mode);

}  // namespace store
