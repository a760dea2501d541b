// Reads and parses JSON, checking in advance everything for which the JSON library would throw.
#include "frame/json_read.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <json/reader.h>

namespace {

constexpr int maxNesting = 500;  // below the library's own limit, at which it throws

// Returns whether the library's parser can be given the text: the parser throws on deep nesting, and accepts comments
// in some places even in strict mode.
bool is_readable(const std::string& text)
{
    int depth = 0;
    bool isInString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (isInString && '\\' == c) {
            ++i;
        } else if ('"' == c) {
            isInString = !isInString;
        } else if (!isInString) {
            depth += ('[' == c || '{' == c) - (']' == c || '}' == c);
            if (depth > maxNesting || '/' == c) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int read_int64(const Json::Value& jValue, int64_t* pValue)
{
    switch (jValue.type()) {
        case Json::nullValue:
        case Json::booleanValue:
        case Json::intValue:
            break;
        case Json::uintValue:
            if (!jValue.isInt64()) {
                return -1;
            }
            break;
        case Json::realValue:
            // The library accepts 2^63, which is out of range. NaN fails both comparisons.
            if (!(jValue.asDouble() >= -0x1p63 && jValue.asDouble() < 0x1p63)) {
                return -1;
            }
            break;
        default:
            return -1;
    }
    *pValue = jValue.asInt64();
    return 0;
}

int read_int(const Json::Value& jValue, int* pValue)
{
    if (!jValue.isConvertibleTo(Json::intValue)) {
        return -1;
    }
    *pValue = jValue.asInt();
    return 0;
}

int read_text(const Json::Value& jValue, std::string* pText)
{
    if (!jValue.isConvertibleTo(Json::stringValue)) {
        return -1;
    }
    *pText = jValue.asString();
    return 0;
}

const Json::Value* find_member(const Json::Value& jValue, const char* szName)
{
    return jValue.isObject() ? jValue.find(szName, szName + strlen(szName)) : NULL;
}

bool can_have_members(const Json::Value& jValue)
{
    return jValue.isObject() || jValue.isNull();
}

int read_member(const Json::Value& jValue, const char* szName, int64_t* pValue)
{
    const Json::Value* pjMember = find_member(jValue, szName);
    return NULL == pjMember ? -1 : read_int64(*pjMember, pValue);
}

int fromString(Json::Value& jValue, const std::string& text)
{
    const int err = errno;  // the parser's number conversion changes it
    jValue = Json::Value();
    if (!is_readable(text)) {
        return -1;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["strictRoot"] = false;  // accept a number or a string at the top level
    builder["rejectDupKeys"] = false;
    const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    const bool isValid = pReader->parse(text.data(), text.data() + text.size(), &jValue, NULL);
    if (!isValid) {
        jValue = Json::Value();
    }
    errno = err;
    return isValid ? 0 : -1;
}
