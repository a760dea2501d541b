// Makes text visible and harmless for logs and terminals.
#include "store/base/visible_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <utility>

#include <json/writer.h>
#include <boost/locale/utf.hpp>

#include "store/base/utf8.h"
#include "store/store.h"

namespace store {
namespace {

constexpr std::string_view kSeparators = " \",>";
constexpr uint32_t kReplacement = 0xFFFD;  // stands for bytes that are no character

// Controls, characters that change the direction of text or have no width, and spaces other than the usual one: first
// and last of each range, ascending.
constexpr std::pair<uint32_t, uint32_t> kUnseen[] = {
    {0x0000, 0x001F}, {0x007F, 0x00A0},   {0x00AD, 0x00AD},     {0x034F, 0x034F}, {0x061C, 0x061C}, {0x115F, 0x1160},
    {0x1680, 0x1680}, {0x17B4, 0x17B5},   {0x180B, 0x180F},     {0x2000, 0x200F}, {0x2028, 0x202F}, {0x205F, 0x206F},
    {0x2800, 0x2800}, {0x3000, 0x3000},   {0x3164, 0x3164},     {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF}, {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFFB}, {0x1D173, 0x1D17A}, {0xE0000, UINT32_MAX}};

bool isVisible(uint32_t point)
{
    const auto range = std::lower_bound(std::begin(kUnseen), std::end(kUnseen), point,
                                        [](const auto& unseen, uint32_t value) { return unseen.second < value; });
    return point < range->first;
}

// Calls take(code point, its bytes) for each character. Bytes that are no character give a code point out of range.
template <typename Take>
void eachCharacter(std::string_view text, Take&& take)
{
    const char* pEnd = text.data() + text.size();
    for (const char* p = text.data(); p != pEnd;) {
        const char* pBegin = p;
        const uint32_t point = boost::locale::utf::utf_traits<char>::decode(p, pEnd);
        take(point, std::string_view(pBegin, static_cast<size_t>(p - pBegin)));
    }
}

void appendEscape(std::string& out, uint32_t unit)
{
    char szEscape[sizeof("\\u0000")];
    std::snprintf(szEscape, sizeof(szEscape), "\\u%04x", unit & 0xFFFF);
    out += szEscape;
}

void appendEscaped(std::string& out, uint32_t point)
{
    constexpr uint32_t kFirstOfPairs = 0x10000;
    if (point < kFirstOfPairs || point > 0x10FFFF) {
        return appendEscape(out, point < kFirstOfPairs ? point : kReplacement);
    }
    appendEscape(out, 0xD800 + ((point - kFirstOfPairs) >> 10));
    appendEscape(out, 0xDC00 + ((point - kFirstOfPairs) & 0x3FF));
}

bool isAllVisible(std::string_view text)
{
    bool isAll = true;
    eachCharacter(text, [&isAll](uint32_t point, std::string_view) { isAll = isAll && isVisible(point); });
    return isAll;
}

}  // namespace

bool isBlank(std::string_view text)
{
    bool isAny = false;
    eachCharacter(text,
                  [&isAny](uint32_t point, std::string_view) { isAny = isAny || (point != ' ' && isVisible(point)); });
    return !isAny;
}

std::string escapeUnseen(std::string_view text, std::string_view others)
{
    std::string escaped;
    eachCharacter(text, [&](uint32_t point, std::string_view bytes) {
        if (isVisible(point) && others.find(bytes) == std::string_view::npos) {
            escaped += bytes;
        } else {
            appendEscaped(escaped, point);
        }
    });
    return escaped;
}

std::string visibleJson(const Json::Value& jValue)
{
    static const Json::StreamWriterBuilder kBuilder = [] {
        Json::StreamWriterBuilder plain;
        plain["indentation"] = "";
        plain["emitUTF8"] = true;
        return plain;
    }();
    return escapeUnseen(Json::writeString(kBuilder, jValue));
}

std::string visibleText(std::string_view text, size_t from)
{
    while (from > 0 && isContinuationByte(text[from])) {
        --from;
    }
    const std::string_view rest = text.substr(from);
    const std::string_view beginning = wholeCharacters(rest, kLongestValue);
    const bool isPlain =
        !text.empty() && text.find_first_of(kSeparators) == std::string_view::npos && isAllVisible(beginning);
    const std::string shown = isPlain ? std::string(beginning) : visibleJson(Json::Value(std::string(beginning)));
    return (from > 0 ? "..." : "") + shown + (beginning.size() < rest.size() ? "..." : "");
}

std::string visiblePartOfJson(std::string_view json, size_t from)
{
    return from == 0 && json.size() <= kLongestValue ? std::string(json) : visibleText(json, from);
}

}  // namespace store
