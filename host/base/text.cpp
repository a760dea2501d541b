// What a client sends could hold the control sequences of a terminal, or line ends that fake a line of the log.
#include "host/base/text.h"

#include <cstdio>

#include "store/store.h"

namespace host {

namespace {

constexpr size_t kMaxLogField = 80;

// U+0080 to U+009F (C2 80 to C2 9F) are control characters as well.
bool isC1Control(std::string_view text, size_t at)
{
    return at + 1 < text.size() && text[at] == '\xC2' && static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

std::string escaped(std::string_view text, unsigned char firstPlain)
{
    const bool isUtf8 = store::isPlainText(text);
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isControl = byte < firstPlain || 0x7F == byte || isC1Control(text, i) ||
                               (i > 0 && isC1Control(text, i - 1)) || (!isUtf8 && 0x80 <= byte);
        if (!isControl && '\\' != text[i]) {
            out += text[i];
            continue;
        }
        char szHex[sizeof("\\xNN")];
        snprintf(szHex, sizeof(szHex), "\\x%02X", byte);
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
