// A host that went away answers nothing, and by itself a connection to it would wait for a quarter of an hour.
#include "store/db/address.h"

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace store {
namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";
constexpr std::string_view kPostgresPrefixes[] = {"postgresql://", "postgres://"};

// By PostgreSQL's names: seconds, but for the last, in milliseconds.
constexpr std::string_view kTimeLimits[] = {"connect_timeout=2", "keepalives_idle=5", "keepalives_interval=2",
                                            "keepalives_count=3", "tcp_user_timeout=10000"};

// With the limits the text is also sure to have a '=': SOCI spoils one that has none.
std::string withTimeLimits(std::string url)
{
    for (const std::string_view limit : kTimeLimits) {
        if (url.find(limit.substr(0, limit.find('=') + 1)) == std::string::npos) {
            url += url.find('?') == std::string::npos ? '?' : '&';
            url += limit;
        }
    }
    return url;
}

}  // namespace

Address addressOf(const std::string& url)
{
    for (const std::string_view prefix : kPostgresPrefixes) {
        if (url.starts_with(prefix)) {
            return {true, withTimeLimits(std::string(kPostgresPrefixes[0]) + url.substr(prefix.size()))};
        }
    }
    if (!url.starts_with(kSqlitePrefix) || url == kSqlitePrefix || url.find('"') != std::string::npos) {
        throw std::runtime_error("a store is named sqlite:PATH or postgresql://...");
    }
    return {false, std::filesystem::absolute(url.substr(kSqlitePrefix.size()))};
}

}  // namespace store
