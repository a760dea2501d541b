// Declares the web API framework: requests, responses, and the rows of a module's method table.
//
// A request and its response are used by one thread only, that of the call for which they were made.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <json/value.h>

namespace VELQ {

// One request to a handler. The framework owns it and keeps it until the handler returns.
class APIRequest {
public:
    // loginUid: uid of the logged-in caller, or UINT32_MAX if it cannot be determined. loginUserName: the caller's
    // login name. jParams: a JSON object of parameters; any other value counts as no parameters.
    APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams);

    // Returns the uid of the logged-in caller, or UINT32_MAX if it cannot be determined.
    uint32_t GetLoginUID() const;

    // Returns a copy of the caller's login name.
    std::string GetLoginUserName() const;

    // Returns whether the request has the parameter, even with a null value.
    bool HasParam(const std::string& name) const;

    // Returns a copy of the parameter's value, or of jDefault if the request lacks the parameter.
    Json::Value GetParam(const std::string& name, const Json::Value& jDefault) const;

private:
    uint32_t m_loginUid;
    std::string m_loginUserName;
    Json::Value m_jParams;
};

// The result of one request. The last call of SetError or SetSuccess determines it. The server may send the success of
// a method that only reads before the handler returns, so such a handler must not set an error after a success.
class APIResponse {
public:
    // Makes the response an error with that code and a copy of jData, as JSON text.
    void SetError(int code, const Json::Value& jData);

    // Makes the response a success with a copy of jData, as JSON text.
    void SetSuccess(const Json::Value& jData);

    // The server calls the functions below. A response that was never set is an error with code 0 and without data.
    bool IsSuccess() const;
    int GetErrorCode() const;  // 0 on success

    // Returns the data as JSON text on one line, split into pieces that are to be sent one after the other, and removes
    // it from the response.
    std::vector<std::string> TakeData();

    // Returns the data, parsed again from its text; null if there is none.
    Json::Value GetData() const;

    // Sets a function that each SetSuccess calls at its end. What the function throws leaves SetSuccess.
    using SuccessCall = std::function<void()>;
    void OnSuccess(SuccessCall call);

private:
    bool m_success = false;
    int m_errorCode = 0;
    std::vector<std::string> m_data;
    SuccessCall m_onSuccess;
};

// One row of a module's method table, 32 bytes long. A table ends with a row of all zeros.
struct APIMethod {
    const char* szApi;     // API name, compared exactly
    int64_t version;       // compared as a number
    const char* szMethod;  // method name, compared exactly
    void (*pHandler)(VELQ::APIRequest*, VELQ::APIResponse*);
};

}  // namespace VELQ
