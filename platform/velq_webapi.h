// The web API framework: one request, its response, and the rows by which a module offers its methods.
//
// Threads: an object belongs to the call it was made for; nothing here is shared between threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <json/value.h>

namespace VELQ {

// One request as a handler sees it. The framework makes it and outlives the handler's call.
class APIRequest {
public:
    // loginUid: uid of the logged-in caller, all 32 bits set when it cannot be determined.
    // loginUserName: the caller's login name. jParams: a JSON object of parameters, or null for none; any other
    // value counts as none.
    APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams);

    // The uid of the logged-in caller; all 32 bits set (-1) when it cannot be determined.
    uint32_t GetLoginUID() const;

    // The caller's login name; a copy that the caller of this function owns.
    std::string GetLoginUserName() const;

    // Whether the request carries the parameter; one whose value is null is carried.
    bool HasParam(const std::string& name) const;

    // A copy of the parameter's value, of jDefault when the request does not carry it.
    Json::Value GetParam(const std::string& name, const Json::Value& jDefault) const;

private:
    uint32_t m_loginUid;
    std::string m_loginUserName;
    Json::Value m_jParams;
};

// The outcome of one request. The last SetError or SetSuccess decides.
class APIResponse {
public:
    // Makes the response an error with that code and jData, which stays the caller's: its text is taken.
    void SetError(int code, const Json::Value& jData);

    // Makes the response a success that carries jData; likewise.
    void SetSuccess(const Json::Value& jData);

    // What a server reads back. A response that was never set is an error with code 0 and no data.
    bool IsSuccess() const;
    int GetErrorCode() const;  // 0 on success

    // The data's JSON text on one line, in pieces to be sent one after the other. They become the caller's; the
    // response has no data any more.
    std::vector<std::string> TakeData();

    // The data, read again from its text: for who looks into it. Null when there is none.
    Json::Value GetData() const;

private:
    bool m_success = false;
    int m_errorCode = 0;
    std::vector<std::string> m_data;
};

// One row of a module's method table, 32 bytes. A table ends with a row of all zeros.
struct APIMethod {
    const char* szApi;     // API name, compared exactly
    int64_t version;       // compared as a number
    const char* szMethod;  // method name, compared exactly
    void (*pHandler)(VELQ::APIRequest*, VELQ::APIResponse*);
};

}  // namespace VELQ
