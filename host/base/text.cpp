// Escapes characters with which a client could control the operator's terminal or forge a line of the log.
#include "host/base/text.h"

#include <cstdio>

#include "store/store.h"

namespace host {

namespace {

constexpr size_t kMaxLogField = 80;

// Returns whether a control character from U+0080 to U+009F begins at that position: the bytes C2 80 to C2 9F.
bool isC1Control(std::string_view text, size_t at)
{
    return at + 1 < text.size() && text[at] == '\xC2' && static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

// Returns whether the byte at that position must be escaped. firstPlain: the lowest ASCII character that needs no
// escape.
bool needsEscape(std::string_view text, size_t at, unsigned char firstPlain, bool isUtf8)
{
    const auto byte = static_cast<unsigned char>(text[at]);
    return byte < firstPlain || byte == '\\' || byte == 0x7F || (byte >= 0x80 && !isUtf8) || isC1Control(text, at) ||
           (at > 0 && isC1Control(text, at - 1));
}

std::string escaped(std::string_view text, unsigned char firstPlain)
{
    const bool isUtf8 = store::isPlainText(text);
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (!needsEscape(text, i, firstPlain, isUtf8)) {
            out += text[i];
            continue;
        }
        char szHex[sizeof("\\xNN")];
        snprintf(szHex, sizeof(szHex), "\\x%02X", static_cast<unsigned char>(text[i]));
        out += szHex;
    }
    return out;
}

}  // namespace

std::string printable(std::string_view text)
{
    return escaped(text, ' ');
}

std::string logField(std::string_view text)
{
    return text.empty() ? "-" : escaped(text.substr(0, kMaxLogField), '!');
}

}  // namespace host
