// One call of a module's method: parameters in, JSON envelope out. HTTP and the command line go the same way.
//
// Any thread may call these functions.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

#include "platform/velq_webapi.h"
#include "store/store.h"

namespace host {

using Handler = void (*)(VELQ::APIRequest*, VELQ::APIResponse*);

struct Answer {
    int status = 200;                // HTTP status
    int code = 0;                    // error code in the envelope, 0 on success
    std::vector<std::string> parts;  // the envelope, JSON on one line, in pieces to be sent one after the other
};

// The parameters of a request. body: a JSON object's text; an empty one means none, and gives a null value.
// Throws std::runtime_error when it is anything else: malformed JSON, a repeated name, more than 200 levels of nesting,
// bytes that are not UTF-8.
Json::Value parseParameters(const std::string& body);

// Calls the handler as that account, on whose behalf the store then acts; resp gets the outcome, an error 500 when an
// exception came out of the handler. Such an exception is reported in the log and goes no further. Returns whether
// there was none.
bool callHandler(Handler handler, const store::Account& account, Json::Value jParams, VELQ::APIResponse& resp);

// Calls the handler and renders the outcome; an exception on the way is answered with the HTTP status 500.
Answer answerRequest(Handler handler, const store::Account& account, Json::Value jParams);

// The answer to a request that reaches no handler. status: the HTTP status, which is its code as well. message: for
// people; empty for what the code means.
Answer refusal(int status, const std::string& message = "");

// The envelope of an outcome, in pieces; the outcome's data goes into it. An error carries a text for people: the
// store's, when the thread's last call of it was refused, so make the envelope on the thread that called the handler
// and right after it; else what the code means. Throws std::exception when memory runs out.
std::vector<std::string> envelope(VELQ::APIResponse& resp);

}  // namespace host
