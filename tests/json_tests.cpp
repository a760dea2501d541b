// Compares the fast JSON writer and the fast parser of policy links with the JSON library.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "standin/webapi/json_writer.h"
#include "store/base/errors.h"
#include "store/records/policy_links.h"
#include "tests/support.h"

namespace {

std::string textOfLibrary(const Json::Value& jValue)
{
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    builder["precision"] = 17;
    return Json::writeString(builder, jValue);
}

std::string textOfWriter(const Json::Value& jValue)
{
    std::string text;
    for (const std::string& piece : standin::writeJson(jValue)) {
        text += piece;
    }
    return text;
}

// A text with a byte that needs an escape now and then, at any position within eight bytes.
std::string randomText(std::mt19937& random)
{
    constexpr char kBytes[] = "abcdefghijklmnopqrstuvwxyz \x7f\xc3\xa4\"\\/\b\f\n\r\t\x01\x1f";
    std::string text(random() % 24, 'x');
    for (char& c : text) {
        c = random() % 8 == 0 ? kBytes[random() % sizeof(kBytes)] : 'x';
    }
    return text;
}

Json::Value randomValue(std::mt19937& random, int depth)
{
    const double reals[] = {0.0, -0.0, 1.0, 0.1, 1e300, 5e-324, 123456789012345680.0, -2.5, HUGE_VAL, -HUGE_VAL, NAN};
    const Json::Value plain[] = {Json::Value(),          true,
                                 Json::Value(INT64_MIN), Json::Value(UINT64_MAX),
                                 randomText(random),     reals[random() % std::size(reals)]};
    Json::Value jValue = plain[random() % std::size(plain)];
    if (depth > 0 && random() % 3 != 0) {
        jValue = Json::Value(random() % 2 == 0 ? Json::arrayValue : Json::objectValue);
        for (auto count = random() % 6; count-- > 0;) {
            Json::Value jItem = randomValue(random, depth - 1);
            if (jValue.isArray()) {
                jValue.append(jItem);
            } else {
                jValue[randomText(random)] = jItem;
            }
        }
    }
    return jValue;
}

TEST(JsonWriter, writesTheSameBytesAsTheLibrary)
{
    std::mt19937 random(20261123);
    for (int round = 0; round < 3000; ++round) {
        const Json::Value jValue = randomValue(random, 5);
        ASSERT_EQ(textOfWriter(jValue), textOfLibrary(jValue));
    }
}

TEST(JsonWriter, splitsALargeAnswerIntoPiecesWithoutLosingAByte)
{
    Json::Value jValue;
    for (const unsigned size : {0u, 1000u, (1u << 20) - 10, 1u << 20, 3u << 20}) {
        jValue.append(std::string(size, 'x'));
        jValue.append(std::string(size / 8, '\n'));
    }
    EXPECT_GT(standin::writeJson(jValue).size(), 3u);
    EXPECT_LT(standin::writeJson(Json::Value()).front().capacity(), 10000u);  // most answers are small
    EXPECT_EQ(textOfWriter(jValue), textOfLibrary(jValue));
}

TEST(PolicyLinks, areParsedAsTheLibraryParsesThem)
{
    std::string many = R"({"order":[{"id":1})";  // more links than the parser has templates for
    for (int id = 2; id < 20; ++id) {
        many += R"(,{"id":)" + std::to_string(id) + "}";
    }
    const std::string texts[] = {R"({"order":[{"id":7}]})",
                                 R"({"order":[{"id":-9223372036854775808},{"id":0}]})",
                                 many + "]}",
                                 R"({"order":[]})",
                                 R"({"order":[{"id":1,"on":true}],"kept":7})",
                                 R"({"order": [{"id":1}]})",
                                 R"({"order":[{"id":1.5}]})",
                                 R"({"order":[{"id":9223372036854775808}]})",
                                 "",
                                 R"({"order":[{"id":1}{"id":2}]})",
                                 R"({"order":[{"id":1},]})",
                                 R"({"order":[{"id":1}])",
                                 R"({"order":[{"id":1}]}x)",
                                 R"({"order":[{"id":}]})",
                                 R"({"order":[{"id":1)"};
    for (const std::string& text : texts) {
        Json::Value jExpected;
        if (test::parse(text.data(), text.size(), jExpected)) {
            EXPECT_EQ(store::parseLinks(text.c_str()), jExpected) << text;
        } else {
            EXPECT_THROW(store::parseLinks(text.c_str()), store::Refusal) << text;
        }
    }
}

}  // namespace
