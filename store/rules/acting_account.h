// Decides whether the request of the acting account may make its next change.
#pragma once

#include <string>

#include "store/base/errors.h"

namespace store {

// Throws the refusal of the acting account's request when it must end before its next change: ECANCELED.
void requireGoingOn();

// Returns the refusal of a request that ends before its next change: ECANCELED. why: for people.
Refusal stopped(const std::string& why);

}  // namespace store
