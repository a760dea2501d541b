// Checks, counts and cuts UTF-8 text. The decoder comes from a header of Boost.Locale and needs neither its library nor
// a locale.
#include "store/base/utf8.h"

#include <algorithm>

#include <boost/locale/utf.hpp>

#include "store/store.h"

namespace store {

bool isPlainText(std::string_view text)
{
    namespace utf = boost::locale::utf;
    for (const char *p = text.data(), *pEnd = p + text.size(); p != pEnd;) {
        const utf::code_point point = utf::utf_traits<char>::decode(p, pEnd);
        if (point == 0 || point == utf::illegal || point == utf::incomplete) {
            return false;
        }
    }
    return true;
}

size_t characterCount(std::string_view text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !isContinuationByte(c); }));
}

std::string_view wholeCharacters(std::string_view text, size_t maxBytes)
{
    size_t length = std::min(text.size(), maxBytes);
    while (length > 0 && length < text.size() && isContinuationByte(text[length])) {
        --length;
    }
    return text.substr(0, length);
}

}  // namespace store
