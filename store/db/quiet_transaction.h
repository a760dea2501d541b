// Writes what may be lost or written later, without keeping others waiting.
#pragma once

#include <functional>

#include <soci/soci.h>

namespace store {

// Runs the work in a writing transaction of its own, apart from the queue of writers. It waits for no lock, and not for
// a standby either. Returns whether the transaction was committed; nothing is changed otherwise. The work may throw
// std::runtime_error. Any thread may call it that leases no connection.
bool inQuietTransaction(const std::function<void(soci::session&)>& work) noexcept;

}  // namespace store
