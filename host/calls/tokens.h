// Bearer tokens: 256 random bits in hexadecimal, of which the store holds only a hash.
//
// Any thread may call these functions.
#pragma once

#include <cstdint>
#include <string>

#include "store/store.h"

namespace host {

// Gives the account another token and returns it. label, lifetime (in seconds, 0 for no end): as for
// store::addToken. Throws std::runtime_error when the random source or the store fails.
std::string issueToken(const store::Account& account, const std::string& label, int64_t lifetime);

// The hash by which the store may know the token of an Authorization header; empty when the header carries no text of a
// token's form. szHeader: the header's value. Throws std::bad_alloc.
std::string hashOfBearer(const char* szHeader);

}  // namespace host
