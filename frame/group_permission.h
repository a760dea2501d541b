// Declares the permission check that create, set and delete make for every group before they change the store.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"

// Checks whether the caller with that uid may manage the group. Returns 0 if so; otherwise sets error 414, logs the
// user, the group and the store's reason, and returns -1.
int check_group_permission(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, int64_t groupId,
                           int line = __builtin_LINE());
