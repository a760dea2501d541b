// Issues bearer tokens and reads them from requests. A token is 256 random bits in hexadecimal; the store holds only
// its hash.
//
// Any thread may call these functions.
#pragma once

#include <cstdint>
#include <string>

#include "store/store.h"

namespace host {

// Creates another token for the account and returns it. label: distinguishes it from the account's other tokens.
// lifetime: seconds until it expires, 0 for never. Throws std::runtime_error when the random source fails, and as
// store::addToken.
std::string issueToken(const store::Account& account, const std::string& label, int64_t lifetime);

// Returns the hash of the token in an Authorization header, empty when the header holds none that is well formed.
// szHeader: the header's value. Throws std::bad_alloc.
std::string bearerTokenHash(const char* szHeader);

}  // namespace host
