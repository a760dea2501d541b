// Calls one method of a module and turns its outcome into the JSON envelope that HTTP clients and the command line get.
//
// Any thread may call these functions.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <json/value.h>

#include "host/base/compression.h"
#include "platform/velq_webapi.h"
#include "store/store.h"

namespace host {

using Handler = void (*)(VELQ::APIRequest*, VELQ::APIResponse*);

// The text of an answer, in pieces to be sent one after the other. Several requests may share it.
using AnswerText = std::shared_ptr<const std::vector<std::string>>;

// Returns the text of an answer, which counts in the bound on memory as long as anybody uses it. Throws std::bad_alloc.
AnswerText makeText(std::vector<std::string> parts);

// Returns how many bytes the text takes.
uint64_t memoryOf(const std::vector<std::string>& parts);

struct Answer {
    int status = 200;                  // HTTP status
    int code = 0;                      // error code in the envelope, 0 on success
    AnswerText text{};                 // the envelope, one line of JSON
    bool succeeded = false;            // whether the envelope says so
    std::string etag{};                // names the answer, in the quotes of the header; empty when it has no name
    Coding coding = Coding::identity;  // of the text
    const char* szType = "application/json";
};

// Takes an answer while the handler still runs.
using EarlyAnswer = std::function<void(Answer)>;

// Parses the parameters of a request. body: the text of a JSON object, or empty for no parameters, which gives a null
// value. Throws std::runtime_error when the body is anything else: malformed JSON, an object with a repeated name, more
// than 200 levels of nesting, bytes that are not UTF-8.
Json::Value parseParameters(const std::string& body);

// Calls the handler on behalf of the account, whose rights the store then checks. watch: as for store::ActingAccount.
// resp receives the outcome, once all changes are on disk; the error 117 when some of them may be lost. An exception
// that the handler throws is logged, sets the error 500 and goes no further. Returns false after an exception.
bool callHandler(Handler handler, const store::Account& account, Json::Value jParams, VELQ::APIResponse& resp,
                 const store::RequestWatch& watch = {});

// Calls the method's handler and returns the answer to be sent: HTTP status 200, 500 after an exception, or without a
// call 413 when refusalOfArrays() finds an array too long.
Answer answerRequest(const VELQ::APIMethod& row, const store::Account& account, Json::Value jParams,
                     const store::RequestWatch& watch = {});

// Does the same for a method that only reads, whose success is complete before the handler has released its values.
// onSuccess: gets a successful answer while the handler still runs; what it throws makes the answer an error 500.
// Returns nothing after onSuccess took the answer, otherwise the answer.
std::optional<Answer> answerRead(Handler handler, const store::Account& account, Json::Value jParams,
                                 const EarlyAnswer& onSuccess);

// Faults in the parameters of a request that the host finds and the method does not report.
struct ParameterFaults {
    std::vector<std::string> ignored;  // names
    store::Cause missing;              // empty when no parameter is known to be missing
};

// Returns the answer with the outcome of a handler, and takes the data out of resp. An error carries the cause of the
// store's refusal of the thread's last call, if it refused, else the missing parameter, if one is missing, else the
// text that belongs to the code. So call it right after the handler and on the same thread. Throws std::exception when
// memory runs out.
Answer answerOf(VELQ::APIResponse& resp, int status = 200, const ParameterFaults& faults = {});

// Returns the answer to a request that reaches no handler. status: the HTTP status, which becomes the error code as
// well. cause: what it lacks is taken from the standard cause of the code.
Answer errorAnswer(int status, const store::Cause& cause = {});

// Returns the envelope of a success, in pieces, and takes the data out of resp. ignored: names that the method ignores.
// Throws std::exception when memory runs out.
std::vector<std::string> envelope(VELQ::APIResponse& resp, const std::vector<std::string>& ignored = {});

}  // namespace host
