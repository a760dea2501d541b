// The question whether a database answers.
#pragma once

#include <functional>

#include "store/db/address.h"

namespace store {

// Each call asks the database: it returns when that answers within two seconds, on a connection that is made anew for
// it if need be, and throws std::exception with a text for people otherwise. It ends within the time that connecting
// takes and four seconds more; one thread at a time. The connections are not those of the pool.
std::function<void()> healthProbeFor(const Address& address);

}  // namespace store
