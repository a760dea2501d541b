// The string hash that carries a listing's query to the store.
#pragma once

#include "platform/velq_core.h"

constexpr int loginUserType = 8;  // "user_type" of a query: what a logged-in user sees

// Makes an empty hash. Returns it, for the caller to release with VLIBCSzHashFree, or null after a log line (errno is
// the platform's).
VLIBCSzHash* alloc_query_hash(int line = __builtin_LINE());
