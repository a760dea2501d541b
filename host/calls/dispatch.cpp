// Calls one method of a module and turns its outcome into the JSON envelope. The text of an exception goes to the log
// only; the client gets a code.
#include "host/calls/dispatch.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <stdexcept>
#include <utility>

#include <json/writer.h>

#include "host/base/log.h"
#include "host/base/memory_budget.h"
#include "host/base/text.h"
#include "host/calls/array_limit.h"
#include "host/calls/parameters.h"
#include "platform/velq_core.h"

namespace host {

namespace {

constexpr int kMaxNesting = 200;
constexpr size_t kMaxIgnoredLength = 80;  // bytes of an ignored name in an answer
constexpr int kErrorParameter = 101;
constexpr int kErrorFailed = 117;
constexpr int kErrorNoRight = 414;

struct ErrorText {
    int code;
    const char* szReason;
    const char* szText;
};

// The reasons and messages of errors whose cause the store does not give. The server answers with HTTP status codes;
// modules use the other codes, and 500.
constexpr ErrorText kErrorTexts[] = {
    {0, "failed", "the method gave no answer"},
    {101, "malformed", "a required parameter is missing or cannot be used, or the group is the root"},
    {105, "failed", "it cannot be determined who is logged in"},
    {117, "failed", "a step failed; in most cases the server's log says which"},
    {400, "malformed", "the body is not a JSON object, or the request is malformed otherwise"},
    {401, "unknown_token", "there is no token, or it is unknown, revoked or expired"},
    {403, "not_permitted", "the account manages no group"},
    {404, "no_such_method", "there is no such method"},
    {413, "too_long", "the body is larger than 4 MiB"},
    {414, "not_permitted", "the account may not manage this group"},
    {500, "failed", "the server failed; its log says how"},
    {503, "busy", "the server is too busy; try again"},
};

// Returns the cause, with what it lacks taken from the table.
store::Cause completed(store::Cause cause, int code)
{
    const auto isOfCode = [code](const ErrorText& text) { return text.code == code; };
    const auto* pFound = std::find_if(std::begin(kErrorTexts), std::end(kErrorTexts), isOfCode);
    const bool isKnown = pFound != std::end(kErrorTexts);
    if (cause.reason.empty()) {
        cause.reason = isKnown ? pFound->szReason : "failed";
    }
    if (cause.text.empty()) {
        cause.text = isKnown ? pFound->szText : "the method failed without a reason";
    }
    return cause;
}

std::string jsonString(const std::string& text)
{
    return Json::valueToQuotedString(printable(text).c_str());
}

std::string errorMember(const char* szName, const std::string& text)
{
    return std::string(",\"") + szName + "\":" + jsonString(text);
}

std::string errorEnvelope(int code, const store::Cause& given)
{
    const store::Cause cause = completed(given, code);
    return "{\"success\":false,\"error\":{\"code\":" + std::to_string(code) + errorMember("message", cause.text) +
           errorMember("reason", cause.reason) + (cause.member.empty() ? "" : errorMember("member", cause.member)) +
           "}}";
}

// Returns the code of an error. Modules take each question for a right that is not answered with yes for a lack of the
// right; the cause tells when the store has not answered at all.
int codeOf(const VELQ::APIResponse& resp, const store::Cause& cause)
{
    const bool isUnanswered =
        cause.reason == "away" || cause.reason == "busy" || cause.reason == "cancelled" || cause.reason == "failed";
    return isUnanswered && resp.GetErrorCode() == kErrorNoRight ? kErrorFailed : resp.GetErrorCode();
}

void reportException(const char* szWhat)
{
    logError("a handler failed", szWhat);
    store::takeRefusal();  // discarded, or the client would get it as the reason for the exception
}

// Calls the handler. Returns false after an exception, with the error 500.
bool runHandler(Handler handler, const store::Account& account, Json::Value jParams, VELQ::APIResponse& resp)
{
    try {
        VELQ::APIRequest req(account.uid, account.name, std::move(jParams));
        // Handlers log the thread's last error, so the errors of earlier requests are cleared.
        VLIBCErrSetEx(0, "", 0);
        errno = 0;
        handler(&req, &resp);
        return true;
    } catch (const std::exception& e) {
        reportException(e.what());
    } catch (...) {
        reportException("an exception of no known type");
    }
    resp.SetError(500, Json::Value());
    return false;
}

// The pieces of an answer with their part of the bounded memory.
struct CountedText {
    explicit CountedText(std::vector<std::string> text) : parts(std::move(text)) {}
    std::vector<std::string> parts;
    MemoryShare memory{};
};

}  // namespace

AnswerText makeText(std::vector<std::string> parts)
{
    const auto pText = std::make_shared<CountedText>(std::move(parts));
    pText->memory.add(memoryOf(pText->parts));
    return {pText, &pText->parts};
}

uint64_t memoryOf(const std::vector<std::string>& parts)
{
    uint64_t bytes = 0;
    for (const std::string& part : parts) {
        bytes += sizeof(part) + part.capacity();
    }
    return bytes;
}

Json::Value parseParameters(const std::string& body)
{
    if (body.empty()) {
        return Json::Value();
    }
    Json::Value jParams;
    std::string error;
    if (!store::readUntrustedJson(body, kMaxNesting, jParams, error) || !jParams.isObject()) {
        throw std::runtime_error("the parameters are not a JSON object");
    }
    return jParams;
}

bool callHandler(Handler handler, const store::Account& account, Json::Value jParams, VELQ::APIResponse& resp,
                 const store::RequestWatch& watch)
{
    store::ActingAccount caller(account.uid, watch);
    const bool hasReturned = runHandler(handler, account, std::move(jParams), resp);
    if (caller.makeDurable() != 0) {
        resp.SetError(kErrorFailed, Json::Value());
    }
    return hasReturned;
}

Answer answerRequest(const VELQ::APIMethod& row, const store::Account& account, Json::Value jParams,
                     const store::RequestWatch& watch)
{
    try {
        if (const auto refusal = refusalOfArrays(jParams)) {
            return errorAnswer(413, *refusal);
        }
        const ParameterFaults faults{ignoredNames(row, jParams), missingParameter(row, jParams)};
        VELQ::APIResponse resp;
        const int status = callHandler(row.pHandler, account, std::move(jParams), resp, watch) ? 200 : 500;
        return answerOf(resp, status, faults);
    } catch (const std::exception& e) {
        reportException(e.what());
        return errorAnswer(500);
    }
}

std::optional<Answer> answerRead(Handler handler, const store::Account& account, Json::Value jParams,
                                 const EarlyAnswer& onSuccess)
{
    bool isTaken = false;
    try {
        VELQ::APIResponse resp;
        resp.OnSuccess([&] {
            if (!isTaken) {
                onSuccess(answerOf(resp));
                isTaken = true;
            }
        });
        const int status = callHandler(handler, account, std::move(jParams), resp) ? 200 : 500;
        if (!isTaken) {
            return answerOf(resp, status);
        }
        if (!resp.IsSuccess()) {
            logError("a handler failed", "its success was sent before");
        }
    } catch (const std::exception& e) {
        reportException(e.what());
    }
    return isTaken ? std::nullopt : std::optional(errorAnswer(500));
}

Answer answerOf(VELQ::APIResponse& resp, int status, const ParameterFaults& faults)
{
    if (resp.IsSuccess()) {
        return {.status = status, .text = makeText(envelope(resp, faults.ignored)), .succeeded = true};
    }
    store::Cause cause = store::takeRefusal();
    const int code = codeOf(resp, cause);
    // The store gets "node_id" as the record's "id".
    const store::Cause& missing = faults.missing;
    const bool isUnexplained = cause.text.empty() || (cause.member == "id" && missing.member == "node_id");
    if (isUnexplained && !missing.text.empty() && (code == kErrorParameter || code == kErrorFailed)) {
        cause = missing;
    }
    return {.status = status, .code = code, .text = makeText({errorEnvelope(code, cause)})};
}

Answer errorAnswer(int status, const store::Cause& cause)
{
    std::vector<std::string> parts{errorEnvelope(status, cause)};
    return {.status = status, .code = status, .text = makeText(std::move(parts))};
}

std::vector<std::string> envelope(VELQ::APIResponse& resp, const std::vector<std::string>& ignored)
{
    std::vector<std::string> parts = resp.TakeData();
    parts.insert(parts.begin(), "{\"success\":true,\"data\":");
    for (const std::string& name : ignored) {
        parts.push_back((&name == &ignored.front() ? ",\"ignored\":[" : ",") +
                        jsonString(name.substr(0, kMaxIgnoredLength)));
    }
    parts.emplace_back(ignored.empty() ? "}" : "]}");
    return parts;
}

}  // namespace host
