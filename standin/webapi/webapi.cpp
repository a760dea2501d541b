// The web API framework's request, which always holds an object of parameters, and its response, which the last setter
// decides.
#include <utility>

#include "platform/velq_webapi.h"

namespace VELQ {

APIRequest::APIRequest(uint32_t loginUid, std::string loginUserName, Json::Value jParams)
    : m_loginUid(loginUid), m_loginUserName(std::move(loginUserName)), m_jParams(Json::objectValue)
{
    if (jParams.isObject()) {
        m_jParams.swap(jParams);
    }
}

uint32_t APIRequest::GetLoginUID() const
{
    return m_loginUid;
}

std::string APIRequest::GetLoginUserName() const
{
    return m_loginUserName;
}

bool APIRequest::HasParam(const std::string& name) const
{
    return m_jParams.isMember(name);
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& jDefault) const
{
    return m_jParams.get(name, jDefault);
}

void APIResponse::SetError(int code, const Json::Value& jData)
{
    m_jData = jData;
    m_success = false;
    m_errorCode = code;
}

void APIResponse::SetSuccess(const Json::Value& jData)
{
    m_jData = jData;
    m_success = true;
    m_errorCode = 0;
}

bool APIResponse::IsSuccess() const
{
    return m_success;
}

int APIResponse::GetErrorCode() const
{
    return m_errorCode;
}

const Json::Value& APIResponse::GetData() const
{
    return m_jData;
}

}  // namespace VELQ
