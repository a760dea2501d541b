// The decoder is Boost.Locale's, which is all in its header and needs no locale.
#include "standin/store/utf8.h"

#include <boost/locale/utf.hpp>

namespace standin {

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

}  // namespace standin
