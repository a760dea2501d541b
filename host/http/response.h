// Sends an answer on its connection.
#pragma once

#include <microhttpd.h>

#include "host/calls/dispatch.h"

namespace host {

// Queues the answer as the response of the connection, with the headers for its status. szAllowed: the HTTP methods
// that the resource takes, sent with status 405. closeAfterResponse: whether the connection ends with it. Returns the
// library's result: MHD_NO when it closes the connection instead. Throws std::bad_alloc. Call it once per request, on
// the thread that serves the connection.
MHD_Result queueAnswer(MHD_Connection* pConnection, const Answer& answer, const char* szAllowed,
                       bool closeAfterResponse);

}  // namespace host
