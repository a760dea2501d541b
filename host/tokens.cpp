// A token is looked up by its hash, so that neither the store's file nor the time of a look-up tells one.
#include "host/tokens.h"

#include <strings.h>

#include <stdexcept>
#include <string_view>

#include <sodium.h>

namespace host {

namespace {

constexpr size_t kBytes = 32;
constexpr size_t kDigits = 2 * kBytes;
constexpr std::string_view kScheme = "Bearer ";

std::string hex(const unsigned char (&bytes)[kBytes])
{
    char szHex[kDigits + 1];
    return sodium_bin2hex(szHex, sizeof(szHex), bytes, kBytes);
}

std::string hashOf(std::string_view token)
{
    unsigned char hash[kBytes];
    crypto_generichash(hash, kBytes, reinterpret_cast<const unsigned char*>(token.data()), token.size(), nullptr, 0);
    return hex(hash);
}

}  // namespace

std::string issueToken(const standin::Account& account, const std::string& label, int64_t lifetime)
{
    if (sodium_init() < 0) {
        throw std::runtime_error("no source of random numbers");
    }
    unsigned char random[kBytes];
    randombytes_buf(random, kBytes);
    std::string token = hex(random);
    standin::addToken(account.uid, hashOf(token), label, lifetime);
    return token;
}

std::string hashOfBearer(const char* szHeader)
{
    if (strncasecmp(szHeader, kScheme.data(), kScheme.size()) != 0) {
        return "";
    }
    const std::string_view token = szHeader + kScheme.size();
    const bool isToken = token.size() == kDigits && token.find_first_not_of("0123456789abcdef") == token.npos;
    return isToken ? hashOf(token) : "";
}

}  // namespace host
