// Reads the URL of a store and adds timeouts to it: without them a connection to a host that went away would wait for a
// quarter of an hour.
#include "store/sql/address.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <libpq-fe.h>

#include "store/base/timeouts.h"

namespace store {
namespace {

constexpr std::string_view kSqlitePrefix = "sqlite:";
constexpr std::string_view kPostgresPrefixes[] = {"postgresql://", "postgres://"};

// A parameter of the URL by libpq's name, in seconds, except for tcp_user_timeout, which is in milliseconds.
struct Parameter {
    std::string_view name;
    int64_t value;
};

constexpr Parameter kTimeouts[] = {{"connect_timeout", kConnectTimeout.count()},
                                   {"keepalives_idle", kKeepaliveIdle.count()},
                                   {"keepalives_interval", kKeepaliveInterval.count()},
                                   {"keepalives_count", kKeepaliveCount},
                                   {"tcp_user_timeout", kUnacknowledgedTimeout.count()}};

// Adds the timeouts that the URL does not set. It always contains a '=' then; SOCI damages a URL without one.
std::string withTimeouts(std::string url)
{
    for (const Parameter& timeout : kTimeouts) {
        const std::string assignment = std::string(timeout.name) + '=';
        if (url.find(assignment) == std::string::npos) {
            url += url.find('?') == std::string::npos ? '?' : '&';
            url += assignment + std::to_string(timeout.value);
        }
    }
    return url;
}

// Throws std::runtime_error for a URL that the client library would misread or refuse. The library's own messages quote
// the part at fault, which may be the password, so that none of them may reach the user.
void checkPostgresUrl(const std::string& url)
{
    const size_t begin = kPostgresPrefixes[0].size();
    const size_t lastAt = url.rfind('@');
    if (lastAt != std::string::npos && url.find_first_of("@/?", begin) != lastAt) {
        throw std::runtime_error(
            "the URL of the store is ambiguous: write @, / and ? in a name or password as %40, %2F"
            " and %3F");
    }
    char* szError = nullptr;
    const std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)> pOptions(
        PQconninfoParse(url.c_str(), &szError), PQconninfoFree);
    const std::unique_ptr<char, void (*)(void*)> pError(szError, PQfreemem);
    if (pOptions == nullptr) {
        const std::string_view text = szError == nullptr ? "" : szError;
        throw std::runtime_error("the URL of the store is malformed: " +
                                 std::string(text.substr(0, std::min(text.find(" \""), text.find(": \"")))));
    }
}

}  // namespace

Address addressOf(const std::string& url)
{
    for (const std::string_view prefix : kPostgresPrefixes) {
        if (url.starts_with(prefix)) {
            const std::string canonical = std::string(kPostgresPrefixes[0]) + url.substr(prefix.size());
            checkPostgresUrl(canonical);
            std::string place = withTimeouts(canonical);
            auto pPrimary = std::make_shared<Primary>(place);
            return {true, std::move(place), std::move(pPrimary)};
        }
    }
    if (!url.starts_with(kSqlitePrefix) || url == kSqlitePrefix || url.find('"') != std::string::npos) {
        throw std::runtime_error("a store is named sqlite:PATH or postgresql://...");
    }
    return {false, std::filesystem::absolute(url.substr(kSqlitePrefix.size())), nullptr};
}

}  // namespace store
