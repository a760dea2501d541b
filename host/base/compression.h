// Compresses what is sent to a client, in a coding that the client accepts. Any thread may call these functions.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace host {

enum class Coding { identity, gzip, zstd };  // identity: not compressed

// A shorter answer fits into one packet as it is.
constexpr size_t kMinBytesToCompress = 1 << 10;

// Returns the coding that the client prefers. szAcceptEncoding: the value of its Accept-Encoding header, null or empty
// when it sent none, which gives identity. Between codings that the client likes equally, zstd comes before gzip, and
// both before identity. An element that is malformed counts as one that the client refuses. A client that refuses all
// three gets identity.
Coding acceptedCoding(const char* szAcceptEncoding);

// Returns the coding's name for the Content-Encoding header, "identity" included.
const char* nameOf(Coding coding);

// Returns the parts, one after the other, in the coding. Throws std::bad_alloc, or std::runtime_error when the library
// of the coding fails.
std::string compressed(Coding coding, const std::vector<std::string>& parts);

}  // namespace host
