// The check that group create, set and delete make for every item, before the store is changed for it.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Whether the caller with that uid may manage the group. Returns 0, or -1 with error 414 set and a log line that names
// the user, the group and the store's reason.
int check_group_permission(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, int64_t groupId,
                           int line = __builtin_LINE());
