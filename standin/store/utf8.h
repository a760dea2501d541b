// Texts that may be stored, sent and printed as UTF-8.
#pragma once

#include <string_view>

namespace standin {

// Whether the text is UTF-8 without a NUL: no overlong form, no surrogate, nothing above U+10FFFF, no sequence cut off.
// Any thread may call it.
bool isPlainText(std::string_view text);

}  // namespace standin
