// Writes the same bytes as the JSON library's stream writer without indentation, with 17 digits and unescaped UTF-8.
#include "standin/webapi/json_writer.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace standin {
namespace {

constexpr size_t kFirstPieceSize = 4 << 10;  // most answers are small
constexpr size_t kMaxPieceSize = 1 << 20;
constexpr size_t kMaxNumberLength = 32;
constexpr size_t kMaxEscapeLength = 6;

bool needsEscape(char c)
{
    return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
}

// Returns whether any of the eight bytes needs an escape; tests all of them at once with integer arithmetic.
bool anyOfEightNeedsEscape(const char* bytes)
{
    constexpr uint64_t kEach = 0x0101010101010101;
    constexpr uint64_t kHigh = 0x8080808080808080;
    uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    const auto below = [word](uint64_t limit) { return (word - kEach * limit) & ~word & kHigh; };
    const auto equals = [word](uint64_t byte) {
        return ((word ^ (kEach * byte)) - kEach) & ~(word ^ (kEach * byte)) & kHigh;
    };
    return (below(0x20) | equals('"') | equals('\\')) != 0;
}

bool needsEscape(std::string_view text)
{
    while (text.size() >= 8) {
        if (anyOfEightNeedsEscape(text.data())) {
            return true;
        }
        text.remove_prefix(8);
    }
    return std::any_of(text.begin(), text.end(), [](char c) { return needsEscape(c); });
}

std::string_view textOf(const Json::Value& jValue)
{
    const char* pBegin = nullptr;
    const char* pEnd = nullptr;
    jValue.getString(&pBegin, &pEnd);
    return {pBegin, static_cast<size_t>(pEnd - pBegin)};
}

// Loads an object's members into the processor's cache before they are needed; a large tree does not fit into it. Most
// members lie side by side because they were allocated one after the other. The module has the same function in
// tree/prefetch.cpp, which the stand-in may not use because the module must also run on other platforms.
void prefetch(const Json::Value& jValue)
{
    constexpr uintptr_t kLine = 64;
    constexpr uintptr_t kLinesBefore = 8;
    constexpr uintptr_t kLines = 24;
    if (!jValue.isObject() || jValue.empty()) {
        return;
    }
    const uintptr_t begin = reinterpret_cast<uintptr_t>(&*jValue.begin()) - kLinesBefore * kLine;
    for (uintptr_t line = 0; line < kLines; ++line) {
        __builtin_prefetch(reinterpret_cast<const void*>(begin + line * kLine));
    }
}

class Writer {
public:
    void write(const Json::Value& jValue)
    {
        switch (jValue.type()) {
            case Json::nullValue:
                put("null");
                break;
            case Json::booleanValue:
                put(jValue.asBool() ? "true" : "false");
                break;
            case Json::intValue:
                putNumber(jValue.asInt64());
                break;
            case Json::uintValue:
                putNumber(jValue.asUInt64());
                break;
            case Json::realValue:
                putReal(jValue.asDouble());
                break;
            case Json::stringValue:
                putText(textOf(jValue));
                break;
            case Json::arrayValue:
                writeArray(jValue);
                break;
            case Json::objectValue:
                writeObject(jValue);
                break;
        }
    }

    std::vector<std::string> takePieces()
    {
        closePiece();
        return std::move(m_pieces);
    }

private:
    // Makes sure that the caller can write size characters at m_pNext.
    void reserve(size_t size)
    {
        if (static_cast<size_t>(m_pEnd - m_pNext) < size) {
            closePiece();
            std::string& piece = m_pieces.emplace_back(std::max(size, m_pieceSize), '\0');
            m_pieceSize = std::min(4 * m_pieceSize, kMaxPieceSize);
            m_pNext = piece.data();
            m_pEnd = m_pNext + piece.size();
        }
    }

    void closePiece()
    {
        if (!m_pieces.empty()) {
            m_pieces.back().resize(m_pieces.back().size() - static_cast<size_t>(m_pEnd - m_pNext));
        }
        m_pNext = m_pEnd = nullptr;
    }

    void put(char c)
    {
        reserve(1);
        *m_pNext++ = c;
    }

    void put(std::string_view text)
    {
        reserve(text.size());
        m_pNext = std::copy(text.begin(), text.end(), m_pNext);
    }

    template <typename Number, typename... Format>
    void putNumber(Number number, Format... format)
    {
        reserve(kMaxNumberLength);
        m_pNext = std::to_chars(m_pNext, m_pNext + kMaxNumberLength, number, format...).ptr;
    }

    void putReal(double number)
    {
        if (!std::isfinite(number)) {
            put(std::isnan(number) ? "null" : number < 0 ? "-1e+9999" : "1e+9999");
            return;
        }
        reserve(kMaxNumberLength);
        const char* pBegin = m_pNext;
        putNumber(number, std::chars_format::general, 17);
        if (std::string_view(pBegin, static_cast<size_t>(m_pNext - pBegin)).find_first_of(".e") ==
            std::string_view::npos) {
            put(".0");  // a reader must see that it is not an integer
        }
    }

    void putText(std::string_view text)
    {
        if (needsEscape(text)) {
            putEscaped(text);
            return;
        }
        reserve(text.size() + 2);
        *m_pNext++ = '"';
        m_pNext = std::copy(text.begin(), text.end(), m_pNext);
        *m_pNext++ = '"';
    }

    void putEscaped(std::string_view text)
    {
        reserve(text.size() * kMaxEscapeLength + 2);
        *m_pNext++ = '"';
        for (const char c : text) {
            if (needsEscape(c)) {
                putEscape(c);
            } else {
                *m_pNext++ = c;
            }
        }
        *m_pNext++ = '"';
    }

    void putEscape(char c)
    {
        constexpr std::string_view kShort = "\"\\\b\f\n\r\t";
        constexpr std::string_view kLetters = "\"\\bfnrt";
        constexpr char kDigits[] = "0123456789abcdef";
        const size_t at = kShort.find(c);
        if (at != std::string_view::npos) {
            put('\\');
            put(kLetters[at]);
            return;
        }
        put("\\u00");
        put(kDigits[c >> 4 & 15]);
        put(kDigits[c & 15]);
    }

    void writeArray(const Json::Value& jArray)
    {
        if (!jArray.empty()) {
            prefetch(*jArray.begin());
        }
        char before = '[';
        for (auto item = jArray.begin(), end = jArray.end(); item != end;) {
            const Json::Value& jItem = *item;
            if (++item != end) {
                prefetch(*item);
            }
            put(before);
            write(jItem);
            before = ',';
        }
        put(before == '[' ? "[]" : "]");
    }

    void writeObject(const Json::Value& jObject)
    {
        char before = '{';
        for (auto member = jObject.begin(), end = jObject.end(); member != end; ++member) {
            const char* pEnd = nullptr;
            const char* szName = member.memberName(&pEnd);
            put(before);
            putText({szName, static_cast<size_t>(pEnd - szName)});
            put(':');
            write(*member);
            before = ',';
        }
        put(before == '{' ? "{}" : "}");
    }

    std::vector<std::string> m_pieces;
    size_t m_pieceSize = kFirstPieceSize;  // smallest size of the next piece
    char* m_pNext = nullptr;               // where the next character goes, in the last piece
    char* m_pEnd = nullptr;                // end of the last piece
};

}  // namespace

std::vector<std::string> writeJson(const Json::Value& jValue)
{
    Writer writer;
    writer.write(jValue);
    return writer.takePieces();
}

}  // namespace standin
