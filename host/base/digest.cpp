// Hashes texts and writes bytes as hexadecimal digits, with libsodium.
#include "host/base/digest.h"

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

}  // namespace host
