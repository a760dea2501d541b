// The same bytes as the JSON library's stream writer without indentation, with 17 digits and UTF-8 as it is.
#include "standin/webapi/json_writer.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>

namespace standin {
namespace {

constexpr size_t kPieceSize = 1 << 20;
constexpr size_t kPieceSlack = 4 << 10;  // most values fit into what a piece has left over

class Writer {
public:
    explicit Writer(std::vector<std::string>& pieces) : m_pieces(pieces)
    {
        open();
    }

    void write(const Json::Value& jValue)
    {
        switch (jValue.type()) {
            case Json::nullValue:
                m_text->append("null");
                break;
            case Json::booleanValue:
                m_text->append(jValue.asBool() ? "true" : "false");
                break;
            case Json::intValue:
                writeNumber(jValue.asInt64());
                break;
            case Json::uintValue:
                writeNumber(jValue.asUInt64());
                break;
            case Json::realValue:
                writeReal(jValue.asDouble());
                break;
            case Json::stringValue:
                writeText(textOf(jValue));
                break;
            case Json::arrayValue:
                writeArray(jValue);
                break;
            case Json::objectValue:
                writeObject(jValue);
                break;
        }
    }

private:
    void open()
    {
        m_text = &m_pieces.emplace_back();
        m_text->reserve(kPieceSize + kPieceSlack);
    }

    static std::string_view textOf(const Json::Value& jValue)
    {
        const char* pBegin = nullptr;
        const char* pEnd = nullptr;
        jValue.getString(&pBegin, &pEnd);
        return {pBegin, static_cast<size_t>(pEnd - pBegin)};
    }

    template <typename Number, typename... Format>
    void writeNumber(Number number, Format... format)
    {
        char digits[32];
        const auto result = std::to_chars(digits, digits + sizeof(digits), number, format...);
        m_text->append(digits, result.ptr);
    }

    void writeReal(double number)
    {
        if (!std::isfinite(number)) {
            m_text->append(std::isnan(number) ? "null" : number < 0 ? "-1e+9999" : "1e+9999");
            return;
        }
        const size_t before = m_text->size();
        writeNumber(number, std::chars_format::general, 17);
        if (m_text->find_first_of(".e", before) == std::string::npos) {
            m_text->append(".0");  // it stays a fraction for who reads it
        }
    }

    void writeText(std::string_view text)
    {
        m_text->push_back('"');
        size_t plain = 0;  // what is not written yet and needs no escape begins here
        for (size_t i = 0; i < text.size(); ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if (byte >= 0x20 && byte != '"' && byte != '\\') {
                continue;
            }
            m_text->append(text, plain, i - plain);
            writeEscape(byte);
            plain = i + 1;
        }
        m_text->append(text, plain);
        m_text->push_back('"');
    }

    void writeEscape(unsigned char byte)
    {
        constexpr std::string_view kShort = "\"\"\\\\\bb\ff\nn\rr\tt";  // bytes, each with the letter of its escape
        for (size_t i = 0; i < kShort.size(); i += 2) {
            if (static_cast<unsigned char>(kShort[i]) == byte) {
                m_text->append({'\\', kShort[i + 1]});
                return;
            }
        }
        constexpr char kDigits[] = "0123456789abcdef";
        m_text->append({'\\', 'u', '0', '0', kDigits[byte >> 4], kDigits[byte & 15]});
    }

    void writeArray(const Json::Value& jArray)
    {
        char before = '[';
        for (const Json::Value& jItem : jArray) {
            m_text->push_back(before);
            write(jItem);
            before = ',';
        }
        m_text->append(before == '[' ? "[]" : "]");
    }

    void writeObject(const Json::Value& jObject)
    {
        if (m_text->size() >= kPieceSize) {
            open();
        }
        char before = '{';
        for (auto member = jObject.begin(), end = jObject.end(); member != end; ++member) {
            const char* pEnd = nullptr;
            const char* szName = member.memberName(&pEnd);
            m_text->push_back(before);
            writeText({szName, static_cast<size_t>(pEnd - szName)});
            m_text->push_back(':');
            write(*member);
            before = ',';
        }
        m_text->append(before == '{' ? "{}" : "}");
    }

    std::vector<std::string>& m_pieces;
    std::string* m_text = nullptr;  // the last piece
};

}  // namespace

std::vector<std::string> writeJson(const Json::Value& jValue)
{
    std::vector<std::string> pieces;
    Writer(pieces).write(jValue);
    return pieces;
}

}  // namespace standin
