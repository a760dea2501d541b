// Implements the web API framework's request and response.
#include <climits>
#include <memory>
#include <utility>

#include <json/reader.h>

#include "platform/velq_webapi.h"
#include "standin/webapi/json_writer.h"

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
    m_data = standin::writeJson(jData);
    m_success = false;
    m_errorCode = code;
}

void APIResponse::SetSuccess(const Json::Value& jData)
{
    m_data = standin::writeJson(jData);
    m_success = true;
    m_errorCode = 0;
    if (m_onSuccess) {
        m_onSuccess();
    }
}

bool APIResponse::IsSuccess() const
{
    return m_success;
}

int APIResponse::GetErrorCode() const
{
    return m_errorCode;
}

std::vector<std::string> APIResponse::TakeData()
{
    return std::exchange(m_data, {});
}

Json::Value APIResponse::GetData() const
{
    std::string text;
    for (const std::string& piece : m_data) {
        text += piece;
    }
    Json::Value jData;
    Json::CharReaderBuilder builder;
    builder["stackLimit"] = INT_MAX;  // the text is the writer's own, which went as deep
    const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    pReader->parse(text.data(), text.data() + text.size(), &jData, nullptr);
    return jData;
}

void APIResponse::OnSuccess(SuccessCall call)
{
    m_onSuccess = std::move(call);
}

}  // namespace VELQ
