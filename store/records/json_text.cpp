// Turns JSON values into texts and back, with one writer for all and one reader for each thread.
#include "store/records/json_text.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <json/reader.h>
#include <json/writer.h>

#include "store/base/errors.h"

namespace store {

std::string writeJson(const Json::Value& jValue)
{
    static const Json::StreamWriterBuilder kBuilder = [] {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        return builder;
    }();
    return Json::writeString(kBuilder, jValue);
}

std::string writeStorableJson(const Json::Value& jValue)
{
    std::string text = writeJson(jValue);
    parseJson(text.c_str());
    return text;
}

Json::Value parseJson(const char* szText)
{
    thread_local const std::unique_ptr<Json::CharReader> pReader(Json::CharReaderBuilder().newCharReader());
    Json::Value jValue;
    try {
        require(pReader->parse(szText, szText + std::strlen(szText), &jValue, nullptr), EINVAL, "a text is not JSON");
    } catch (const Json::Exception&) {
        throw Refusal(EINVAL, Reason::tooDeep, "", "a value that is nested too deep");
    }
    return jValue;
}

}  // namespace store
