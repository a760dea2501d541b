// Sending an answer back on its connection.
#pragma once

#include <microhttpd.h>

#include "host/calls/dispatch.h"

namespace host {

// Queues the answer as the connection's response, with the headers that go with its status. szAllowed:
// the HTTP methods that what was asked for takes, told when the status is that of another one. isLast: the connection
// is closed after it. Returns what the library says, MHD_NO when it closes the connection instead. Throws
// std::bad_alloc. To be called once per request, on the thread that serves the connection.
MHD_Result queueAnswer(MHD_Connection* pConnection, Answer answer, const char* szAllowed, bool isLast);

}  // namespace host
