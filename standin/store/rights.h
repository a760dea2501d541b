// What an account may see and manage: an administrator everything, another account the groups delegated to it and all
// below them.
#pragma once

#include <cstdint>
#include <string>

#include <soci/soci.h>

namespace standin {

enum class Role { unknown, delegate, administrator };

// The account's standing; unknown without such an account. Runs in the caller's transaction; throws soci::soci_error.
Role roleOf(soci::session& sql, int64_t uid);

// Text before a SELECT that makes "seen": the identifiers of the groups delegated to the account and of all below
// them. Its one parameter is the uid.
extern const std::string kSeenGroups;

}  // namespace standin
