// Declares the permission check for servers, and the reading of a server's record, whose members only the store knows.
#pragma once

#include <cstdint>

#include "platform/velq_webapi.h"
#include "platform/velq_zem.h"

// Reads a member that is a signed 64-bit integer into *pValue. Returns 0, or -1 after a log line.
int read_server_member(const _tag_velq_zem_kx_* pKx, const char* szName, int64_t* pValue);

// Checks whether the caller with that uid may manage the server's group. pKx: a record for the server. Returns 0 if so;
// otherwise sets error 414, writes a log line, and returns -1. The refusal names the root group, exactly as for a
// server that does not exist: a caller without permission cannot find out which servers exist. For the managers of the
// root group, a server that does not exist is no refusal here. Also returns -1, without an error code, after a log line
// if the store fails.
int check_server_permission(const VELQ::APIRequest& req, VELQ::APIResponse& resp, uint32_t uid, int64_t serverId,
                            _tag_velq_zem_kx_* pKx);
