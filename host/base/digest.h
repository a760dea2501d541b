// Hashes texts, gives random bytes, and writes bytes as hexadecimal digits. Any thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

constexpr size_t kDigestBytes = 32;
constexpr size_t kDigestDigits = 2 * kDigestBytes;

// Returns the bytes as kDigestDigits lower-case hexadecimal digits.
std::string hexOf(const unsigned char (&bytes)[kDigestBytes]);

// Returns the BLAKE2b hash of the text in hexadecimal. The text cannot be recovered from it.
std::string digestOf(std::string_view text);

// Returns kDigestBytes random bytes in hexadecimal. Throws std::runtime_error when the random source fails.
std::string randomDigits();

}  // namespace host
