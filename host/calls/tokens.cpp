// Issues bearer tokens and reads them from requests. Tokens are looked up by their hashes, so that neither the store's
// file nor the time that a look-up takes reveals one.
#include "host/calls/tokens.h"

#include <strings.h>

#include <string_view>

#include "host/base/digest.h"

namespace host {

namespace {

constexpr std::string_view kScheme = "Bearer ";

}  // namespace

std::string issueToken(const store::Account& account, const std::string& label, int64_t lifetime)
{
    std::string token = randomDigits();
    store::addToken(account.uid, digestOf(token), label, lifetime);
    return token;
}

std::string bearerTokenHash(const char* szHeader)
{
    if (strncasecmp(szHeader, kScheme.data(), kScheme.size()) != 0) {
        return "";
    }
    const std::string_view token = szHeader + kScheme.size();
    const bool isToken =
        token.size() == kDigestDigits && token.find_first_not_of("0123456789abcdef") == std::string_view::npos;
    return isToken ? digestOf(token) : "";
}

}  // namespace host
