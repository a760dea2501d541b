// Fingerprints of text, and bytes as digits. Any thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

constexpr size_t kDigestBytes = 32;
constexpr size_t kDigestDigits = 2 * kDigestBytes;

// The bytes in hexadecimal, kDigestDigits of them.
std::string hexOf(const unsigned char (&bytes)[kDigestBytes]);

// The BLAKE2b hash of the text in hexadecimal: which text it was cannot be found out from it.
std::string digestOf(std::string_view text);

}  // namespace host
