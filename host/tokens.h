// Bearer tokens: 256 random bits in hexadecimal, of which the store holds only a hash.
//
// Any thread may call these functions.
#pragma once

#include <string>

#include "standin/store/store.h"

namespace host {

// Gives the account a new token and returns it; an earlier one stops working. Throws std::runtime_error when the random
// source or the store fails.
std::string issueToken(const standin::Account& account);

// The hash by which the store may know the token of an Authorization header; empty when the header carries no text of a
// token's form. szHeader: the header's value. Throws std::bad_alloc.
std::string hashOfBearer(const char* szHeader);

}  // namespace host
