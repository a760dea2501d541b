// Reads JSON that comes from outside the process: requests and files. Each text gets a reader of its own with the
// caller's limit, which costs little compared with the reading.
#include <algorithm>
#include <memory>

#include <json/reader.h>

#include "store/store.h"

namespace store {

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
