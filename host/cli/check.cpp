// Checks an installation, one subject after the other. Each check returns what it found, or throws what is wrong.
#include "host/cli/check.h"

#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>

#include <json/value.h>

#include "host/base/log.h"
#include "host/base/text.h"
#include "host/cli/commands.h"
#include "host/cli/program_files.h"
#include "store/store.h"

namespace host {

namespace {

constexpr int kMaxExportNesting = 1010;  // of an exported fleet
constexpr int64_t kSecondsPerDay = 24 * 60 * 60;
constexpr int64_t kDaysBeforeEnd = 14;  // in which a token that is in use should be replaced

std::string counted(size_t count, const std::string& word)
{
    return std::to_string(count) + ' ' + word + (count == 1 ? "" : "s");
}

// Returns the whole store as a fleet file. Throws, with its place, at a record that was damaged by direct SQL.
Json::Value exportedFleet()
{
    std::string text, error;
    store::exportFleet([&text](const std::string& line) { text += line + '\n'; });
    Json::Value jFleet;
    if (!store::readUntrustedJson(text, kMaxExportNesting, jFleet, error)) {
        throw std::runtime_error(error);
    }
    return jFleet;
}

std::string checkRecords()
{
    size_t count = 0;
    const Json::Value jFleet = exportedFleet();
    for (const Json::Value& jRecords : jFleet) {
        count += jRecords.size();
    }
    return counted(count, "record");
}

std::string checkAdministrator()
{
    const Json::Value jFleet = exportedFleet();
    for (const Json::Value& jAccount : jFleet["accounts"]) {
        if (jAccount["admin"].asBool()) {
            return jAccount["name"].asString();
        }
    }
    throw std::runtime_error("there is none; zemhost apply makes one");
}

std::string checkTokens()
{
    const int64_t now = std::time(nullptr);
    const int64_t soon = now + kDaysBeforeEnd * kSecondsPerDay;
    std::string ending;
    size_t valid = 0;
    for (const store::Token& token : store::listTokens(std::nullopt)) {
        const bool isValid = token.expires == 0 || token.expires > now;
        const bool isUsed = token.lastUsed > now - kDaysBeforeEnd * kSecondsPerDay;
        valid += isValid;
        if (isValid && isUsed && token.expires != 0 && token.expires < soon) {
            ending += (ending.empty() ? "" : "; ") + token.account + " \"" + token.label + "\" ends on " +
                      utcTime(token.expires);
        }
    }
    if (!ending.empty()) {
        throw std::runtime_error("in use, and soon to end: " + ending);
    }
    return counted(valid, "valid token");
}

std::string checkModules()
{
    loadModules({}, true);
    return counted(defaultModules().size(), "module");
}

std::string checkPage()
{
    const std::filesystem::path file = programFile("share/zemhost", "console") / "index.html";
    if (!std::filesystem::exists(file)) {
        throw std::runtime_error("there is no " + file.string());
    }
    return file.parent_path().string();
}

// Prints the result of one check. Returns whether the subject is sound.
bool printCheck(const std::string& subject, const std::function<std::string()>& check)
{
    try {
        std::cout << "ok     " + subject + ": " + printable(check()) + '\n';
        return true;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        std::cout << "wrong  " + subject + ": " + printable(e.what()) + '\n';
        return false;
    }
}

}  // namespace

bool checkFiles()
{
    const bool areModulesSound = printCheck("modules", checkModules);
    return printCheck("page", checkPage) && areModulesSound;
}

bool checkStore()
{
    bool isSound = printCheck("records of the store", checkRecords);
    isSound &= printCheck("administrator", checkAdministrator);
    isSound &= printCheck("tokens", checkTokens);
    return isSound;
}

}  // namespace host
