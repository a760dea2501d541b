// Bearer tokens: 256 random bits in hexadecimal, of which the store holds only a hash.
//
// Any thread may call these functions. They throw std::runtime_error when the random source or the store fails.
#pragma once

#include <optional>
#include <string>

#include "standin/store/store.h"

namespace host {

// Gives the account a new token and returns it; an earlier one stops working.
std::string issueToken(const standin::Account& account);

// The account whose token an Authorization header carries; nothing when there is none. szHeader: the header's value,
// null for no header.
std::optional<standin::Account> accountOfBearer(const char* szHeader);

}  // namespace host
