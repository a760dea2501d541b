// The tables of the store.
#pragma once

namespace standin {

// Creates the tables in the open database when it has none; in another, checks that they are of the version that this
// program needs. Throws std::runtime_error, with a text for people, when they are not or the database reports an error.
void prepareSchema();

}  // namespace standin
