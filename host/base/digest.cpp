// Hashes texts, gives random bytes, and writes bytes as hexadecimal digits, with libsodium.
#include "host/base/digest.h"

#include <stdexcept>

#include <sodium.h>

namespace host {

std::string hexOf(const unsigned char (&bytes)[kDigestBytes])
{
    char szHex[kDigestDigits + 1];
    return sodium_bin2hex(szHex, sizeof(szHex), bytes, kDigestBytes);
}

std::string digestOf(std::string_view text)
{
    unsigned char hash[kDigestBytes];
    crypto_generichash(hash, kDigestBytes, reinterpret_cast<const unsigned char*>(text.data()), text.size(), nullptr,
                       0);
    return hexOf(hash);
}

std::string randomDigits()
{
    if (sodium_init() < 0) {
        throw std::runtime_error("no source of random numbers");
    }
    unsigned char random[kDigestBytes];
    randombytes_buf(random, kDigestBytes);
    return hexOf(random);
}

}  // namespace host
