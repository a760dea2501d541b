// Helpers for tests and fuzz targets: readable JSON, temporary folders, and calls of the module's handlers.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include <json/json.h>

#include "include/webapi_zem_ou.h"

namespace test {

// Parses the bytes into jValue. Returns false if they are not JSON or nested too deep for the parser.
inline bool parse(const char* pText, size_t size, Json::Value& jValue)
{
    const std::unique_ptr<Json::CharReader> pReader(Json::CharReaderBuilder().newCharReader());
    try {
        return pReader->parse(pText, pText + size, &jValue, nullptr);
    } catch (const Json::Exception&) {
        return false;
    }
}

// Parses a JSON text in which each % stands for the next argument, and, if it contains no ", each ' for a ".
template <typename... Arguments>
Json::Value json(std::string text, const Arguments&... arguments)
{
    if (text.find('"') == std::string::npos) {
        std::replace(text.begin(), text.end(), '\'', '"');
    }
    std::ostringstream filled;
    size_t from = 0;
    [[maybe_unused]] const auto fill = [&](const auto& argument) {
        const size_t at = text.find('%', from);
        filled << text.substr(from, at - from) << std::boolalpha << argument;
        from = at + 1;
    };
    (fill(arguments), ...);
    filled << text.substr(from);
    Json::Value jValue;
    if (!parse(filled.str().data(), filled.str().size(), jValue)) {
        throw std::invalid_argument("no JSON: " + filled.str());
    }
    return jValue;
}

// A temporary folder, which the destructor removes.
struct TempFolder {
    std::string path = (std::filesystem::temp_directory_path() / "zem-XXXXXX").string();

    TempFolder()
    {
        if (mkdtemp(path.data()) == nullptr) {
            throw std::runtime_error("no folder " + path);
        }
    }
    ~TempFolder()
    {
        std::filesystem::remove_all(path);
    }
    TempFolder(const TempFolder&) = delete;
};

using Handler = decltype(VELQ::APIMethod::pHandler);

// Returns the handler of a method in the table, for example "KXGroup create".
inline Handler handlerOf(const std::string& method)
{
    for (const VELQ::APIMethod* pRow = GetAPITable(); pRow->szApi != nullptr; ++pRow) {
        if (pRow->version == 1 && "VELQ.ZEM." + method == std::string(pRow->szApi) + " " + pRow->szMethod) {
            return pRow->pHandler;
        }
    }
    throw std::invalid_argument("no method " + method);
}

inline VELQ::APIResponse answerOf(Handler handler, const Json::Value& jParams, uint32_t uid)
{
    VELQ::APIRequest request(uid, "bob", jParams);
    VELQ::APIResponse response;
    handler(&request, &response);
    return response;
}

}  // namespace test
