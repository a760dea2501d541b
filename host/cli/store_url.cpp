// Says which store a command uses.
#include "host/cli/store_url.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>

#include "host/base/text.h"
#include "host/base/usage_error.h"

namespace host {

namespace {

// Returns the environment file of the service that belongs to the program's package: that below / for /usr/bin/zemhost.
// Returns an empty path when the program was installed otherwise or the file is missing.
std::filesystem::path serviceFile()
{
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    if (folder.filename() != "bin" || folder.parent_path().filename() != "usr") {
        return "";
    }
    const auto file = folder.parent_path().parent_path() / "etc/default/zemhost";
    return std::filesystem::exists(file) ? file : "";
}

// Returns the value of the last assignment to ZEM_STORE, "" when there is none. Systemd and a shell read it alike
// unless it contains one of the characters that this refuses.
std::string storeIn(const std::filesystem::path& path)
{
    constexpr std::string_view kName = "ZEM_STORE=";
    std::ifstream file(path);
    std::string value, line;
    while (std::getline(file, line)) {
        line.erase(0, line.find_first_not_of(" \t"));
        if (line.starts_with(kName)) {
            value = line.substr(kName.size(), line.find_last_not_of(" \t\r") + 1 - kName.size());
        }
    }
    if (!file.eof()) {
        throw UsageError("name a store with --store, or run this as root, who can read that of " + path.string());
    }
    const bool isQuoted = value.size() > 1 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0];
    if (isQuoted) {
        value = value.substr(1, value.size() - 2);
    }
    if (value.empty() || value.find_first_of("\"'\\$` \t") != std::string::npos) {
        throw UsageError("name a store with --store: " + path.string() +
                         " sets no ZEM_STORE that could be used as it is");
    }
    return value;
}

std::string namedStore(const std::string& option)
{
    if (!option.empty()) {
        return option;
    }
    const char* szEnvironment = getenv("ZEM_STORE");
    if (szEnvironment != nullptr && *szEnvironment != '\0') {
        return szEnvironment;
    }
    const std::filesystem::path file = serviceFile();
    if (file.empty()) {
        return "sqlite:zem.db";
    }
    const std::string url = storeIn(file);
    std::cerr << "zemhost: the store is that of " + printable(file.string()) + '\n';
    return url;
}

}  // namespace

std::string storeUrl(const std::string& option)
{
    constexpr std::string_view kSqlite = "sqlite:";
    std::string url = namedStore(option);
    // A relative path would lead elsewhere once root has entered the folder of the store.
    if (url.starts_with(kSqlite) && url.size() > kSqlite.size()) {
        url.replace(kSqlite.size(), url.npos, std::filesystem::absolute(url.substr(kSqlite.size())).string());
    }
    return url;
}

}  // namespace host
