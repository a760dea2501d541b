// Reads JSON that comes from outside the process: requests and files. Each text gets a reader of its own with the
// caller's limit, which costs little compared with the reading.
#include <algorithm>
#include <memory>

#include <json/reader.h>

#include "store/store.h"

namespace store {

size_t countJsonValues(std::string_view text)
{
    size_t count = 1;
    bool isInText = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            isInText = !isInText;
        } else if (isInText) {
            i += c == '\\' ? 1 : 0;
        } else {
            count += c == ',' || c == '[' || c == '{' ? 1 : 0;
        }
    }
    return count;
}

bool readUntrustedJson(std::string_view text, int maxNesting, Json::Value& jValue, std::string& error)
{
    if (!isPlainText(text)) {
        error = "it is not UTF-8 or holds a NUL";
        return false;
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = maxNesting;
    const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    Json::Value jRead;
    try {
        if (pReader->parse(text.data(), text.data() + text.size(), &jRead, &error)) {
            jValue.swap(jRead);
            return true;
        }
        std::replace(error.begin(), error.end(), '\n', ' ');
    } catch (const Json::Exception&) {  // the reader throws it on deep nesting
        error = "values are nested too deep";
    }
    return false;
}

}  // namespace store
