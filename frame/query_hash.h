// Allocates the string hash in which a query is passed to the store's listing functions.
#pragma once

#include "platform/velq_core.h"

constexpr int loginUserType = 8;  // "user_type" of a query by a logged-in user

// Returns an empty hash, which the caller releases with VLIBCSzHashFree, or null after a log line; errno is then as
// VLIBCSzHashAlloc set it.
VLIBCSzHash* alloc_query_hash(int line = __builtin_LINE());
