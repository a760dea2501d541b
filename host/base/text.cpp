// Makes texts of clients and of the store safe to print, with the store's function for that.
#include "host/base/text.h"

#include "store/store.h"

namespace host {

std::string printable(std::string_view text)
{
    return store::escapeUnseen(text);
}

std::string logField(std::string_view text)
{
    constexpr size_t kMaxLength = 80;
    return text.empty() ? "-" : store::escapeUnseen(text.substr(0, kMaxLength), " \\");
}

}  // namespace host
