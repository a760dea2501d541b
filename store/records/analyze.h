// What the database knows of the tables' sizes, by which it chooses how to answer a query.
#pragma once

namespace store {

// Has the database look at its tables again; to be called after the commit of a change that stored many records, by a
// thread without a transaction. The change is made, so a failure is not told: the database looks by itself, later.
void analyzeTables() noexcept;

}  // namespace store
