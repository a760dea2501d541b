// Calls one method of a module and turns its outcome into the JSON envelope. The text of an exception goes to the log
// only; the client gets a code.
#include "host/calls/dispatch.h"

#include <cerrno>
#include <stdexcept>
#include <utility>

#include <json/writer.h>

#include "host/base/log.h"
#include "host/base/text.h"
#include "platform/velq_core.h"

namespace host {

namespace {

constexpr int kMaxNesting = 200;

struct ErrorText {
    int code;
    const char* szText;
};

// The messages of errors for which the store gives no reason. The server answers with HTTP status codes; modules use
// the other codes, and 500.
constexpr ErrorText kErrorTexts[] = {
    {0, "the method gave no answer"},
    {101, "a required parameter is missing or cannot be used, or the group is the root"},
    {105, "it cannot be determined who is logged in"},
    {117, "a step failed; in most cases the server's log says which"},
    {400, "the body is not a JSON object, or the request is malformed otherwise"},
    {401, "there is no token, or it is unknown, revoked or expired"},
    {403, "the account manages no group"},
    {404, "there is no such method"},
    {413, "the body is larger than 4 MiB"},
    {414, "the account may not manage this group"},
    {500, "the server failed; its log says how"},
    {503, "the server is too busy; try again"},
};

std::string errorTextOf(int code)
{
    for (const ErrorText& text : kErrorTexts) {
        if (text.code == code) {
            return text.szText;
        }
    }
    return "the method failed without a reason";
}

std::string errorEnvelope(int code, const std::string& message)
{
    return "{\"success\":false,\"error\":{\"code\":" + std::to_string(code) +
           ",\"message\":" + Json::valueToQuotedString(printable(message).c_str()) + "}}";
}

AnswerText shared(std::vector<std::string> parts)
{
    return std::make_shared<const std::vector<std::string>>(std::move(parts));
}

void reportException(const char* szWhat)
{
    logError("a handler failed", szWhat);
    store::takeRefusal();  // discarded, or the client would get it as the reason for the exception
}

}  // namespace

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

bool callHandler(Handler handler, const store::Account& account, Json::Value jParams, VELQ::APIResponse& resp)
{
    const store::ActingAccount caller(account.uid);
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

Answer answerRequest(Handler handler, const store::Account& account, Json::Value jParams)
{
    try {
        VELQ::APIResponse resp;
        const int status = callHandler(handler, account, std::move(jParams), resp) ? 200 : 500;
        return answerOf(resp, status);
    } catch (const std::exception& e) {
        reportException(e.what());
        return errorAnswer(500);
    }
}

Answer answerOf(VELQ::APIResponse& resp, int status)
{
    const bool succeeded = resp.IsSuccess();
    const int code = resp.GetErrorCode();
    return {.status = status, .code = code, .text = shared(envelope(resp)), .succeeded = succeeded};
}

Answer errorAnswer(int status, const std::string& message)
{
    std::vector<std::string> parts{errorEnvelope(status, message.empty() ? errorTextOf(status) : message)};
    return {.status = status, .code = status, .text = shared(std::move(parts))};
}

std::vector<std::string> envelope(VELQ::APIResponse& resp)
{
    if (!resp.IsSuccess()) {
        const std::string reason = store::takeRefusal();
        return {errorEnvelope(resp.GetErrorCode(), reason.empty() ? errorTextOf(resp.GetErrorCode()) : reason)};
    }
    std::vector<std::string> parts = resp.TakeData();
    parts.insert(parts.begin(), "{\"success\":true,\"data\":");
    parts.emplace_back("}");
    return parts;
}

}  // namespace host
