// What an account may see and manage.
#pragma once

#include <cstdint>

#include "standin/store/database.h"

namespace standin {

enum class Role { unknown, delegate, administrator };

// The account's standing; unknown without such an account.
Role roleOf(soci::session& sql, int64_t uid);

// Text before a SELECT that makes "seen": the identifiers of the groups delegated to the account and of all below
// them. Its one parameter is the uid.
extern const char* const kSeenGroups;

}  // namespace standin
