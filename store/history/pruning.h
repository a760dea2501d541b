// Deletes changes from the history when they are old enough.
#pragma once

namespace store {

// Ends the thread that keepHistory() of store.h has started, if it has. To be called before the database is closed,
// while no thread uses the store.
void stopPruning() noexcept;

}  // namespace store
