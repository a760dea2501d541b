// The tables of the store.
#pragma once

#include "store/store.h"

namespace store {

// Creates the tables in the open database when it is empty, unless that is to be a store already; brings one of the
// version before to that which this program needs. Throws std::runtime_error, with a text for people, when the database
// is none of these, and then has changed nothing; or when the database reports an error; NoStore
// when it is empty and is not to become one.
void prepareSchema(OpenMode mode);

}  // namespace store
