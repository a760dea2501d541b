// Counts and cuts UTF-8 text by characters; store.h declares the functions that the rest of the program uses.
#pragma once

#include <cstddef>
#include <string_view>

namespace store {

// Returns whether the byte continues a character rather than beginning one.
constexpr bool isContinuationByte(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Returns the longest beginning of the text that has at most maxBytes bytes and cuts no character in two. Any thread
// may call it.
std::string_view wholeCharacters(std::string_view text, size_t maxBytes);

}  // namespace store
