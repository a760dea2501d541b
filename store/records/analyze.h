// Refreshes the statistics by which the database plans its queries.
#pragma once

namespace store {

// Refreshes the statistics of the tables. Call it after the commit of a change that stored many records, on a thread
// without a transaction. Failures are ignored, since the database refreshes its statistics by itself later.
void analyzeTables() noexcept;

}  // namespace store
