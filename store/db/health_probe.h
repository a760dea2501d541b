// Checks whether a database answers.
#pragma once

#include <functional>

#include "store/sql/address.h"

namespace store {

// Returns the probe of a database. Each call of the probe returns when the database has answered within kProbeTimeout,
// over a connection of the probe's own, which it makes anew when it was lost. Otherwise it throws std::exception with a
// text for people. A call takes at most the time for connecting and twice kProbeTimeout. One thread at a time may call
// the probe.
std::function<void()> healthProbeFor(const Address& address);

}  // namespace store
