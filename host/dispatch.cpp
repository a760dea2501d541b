// Whatever a handler throws ends here, and its text is for the operator only; the client gets a code.
#include "host/dispatch.h"

#include <cerrno>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <utility>

#include "host/text.h"
#include "platform/velq_core.h"

namespace host {

namespace {

constexpr int kMaxNesting = 200;

std::string errorEnvelope(int code)
{
    return "{\"success\":false,\"error\":{\"code\":" + std::to_string(code) + "}}";
}

void reportException(const char* szWhat)
{
    std::cerr << "zemhost: a handler failed: " + printable(szWhat) + "\n";
}

}  // namespace

Json::Value parseParameters(const std::string& body)
{
    if (body.empty()) {
        return Json::Value();
    }
    Json::Value jParams;
    std::string error;
    if (!standin::readUntrustedJson(body, kMaxNesting, jParams, error) || !jParams.isObject()) {
        throw std::runtime_error("the parameters are not a JSON object");
    }
    return jParams;
}

bool callHandler(Handler handler, const standin::Account& account, Json::Value jParams, VELQ::APIResponse& resp)
{
    try {
        VELQ::APIRequest req(account.uid, account.name, std::move(jParams));
        // What an earlier request left behind must not colour the log lines of this one.
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

Answer answerRequest(Handler handler, const standin::Account& account, Json::Value jParams)
{
    try {
        VELQ::APIResponse resp;
        const int status = callHandler(handler, account, std::move(jParams), resp) ? 200 : 500;
        return {status, resp.GetErrorCode(), envelope(resp)};
    } catch (const std::exception& e) {
        reportException(e.what());
        return refusal(500);
    }
}

Answer refusal(int status)
{
    return {status, status, {errorEnvelope(status)}};
}

std::vector<std::string> envelope(VELQ::APIResponse& resp)
{
    if (!resp.IsSuccess()) {
        return {errorEnvelope(resp.GetErrorCode())};
    }
    std::vector<std::string> parts = resp.TakeData();
    parts.insert(parts.begin(), "{\"success\":true,\"data\":");
    parts.emplace_back("}");
    return parts;
}

}  // namespace host
