// Tests which coding the host chooses for a client, and that clients can decompress what it sends.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include <zlib.h>
#include <zstd.h>

#include "host/base/compression.h"

namespace {

using host::Coding;

TEST(Compression, choosesTheCodingThatTheClientPrefers)
{
    constexpr struct {
        const char* szAcceptEncoding;
        Coding coding;
    } kClients[] = {
        {nullptr, Coding::identity},
        {"", Coding::identity},
        {"gzip, deflate, br", Coding::gzip},
        {"gzip, deflate, br, zstd", Coding::zstd},
        {" ,\tGZip ; Q=0.5 ,, br", Coding::gzip},
        {"x-gzip", Coding::gzip},
        {"zstd;q=0.5, gzip;q=0.8", Coding::gzip},
        {"gzip;q=0", Coding::identity},
        {"gzip;q=0.000, zstd;q=0.001", Coding::zstd},
        {"gzip;q=0.5, identity", Coding::identity},
        {"gzip;q=0.5, identity;q=0.5", Coding::gzip},
        {"*", Coding::zstd},
        {"*, zstd;q=0", Coding::gzip},
        {"gzip, *;q=0", Coding::gzip},
        {"*;q=0, identity;q=0", Coding::identity},
        {"gzip;q=2, zstd;q=x", Coding::identity},
        {"gzip;q=nan, zstd;level=1", Coding::identity},
        {"gzipped, zst, ;q=1", Coding::identity},
    };
    for (const auto& client : kClients) {
        EXPECT_EQ(host::acceptedCoding(client.szAcceptEncoding), client.coding)
            << (client.szAcceptEncoding == nullptr ? "no header" : client.szAcceptEncoding);
    }
}

// Returns the text that a client reads, which has that many bytes. Cuts off or leaves zeros when the number is wrong.
std::string decompressed(Coding coding, std::string bytes, size_t size)
{
    std::string text(size, '\0');
    if (coding == Coding::zstd) {
        EXPECT_EQ(ZSTD_decompress(text.data(), size, bytes.data(), bytes.size()), size);
        return text;
    }
    z_stream state{};
    state.next_in = reinterpret_cast<Bytef*>(bytes.data());
    state.avail_in = static_cast<uInt>(bytes.size());
    state.next_out = reinterpret_cast<Bytef*>(text.data());
    state.avail_out = static_cast<uInt>(size);
    constexpr int kOnlyGzip = 16;
    EXPECT_EQ(inflateInit2(&state, MAX_WBITS + kOnlyGzip), Z_OK);
    EXPECT_EQ(inflate(&state, Z_FINISH), Z_STREAM_END);
    EXPECT_EQ(state.avail_in + state.avail_out, 0U);
    EXPECT_EQ(inflateEnd(&state), Z_OK);
    return text;
}

TEST(Compression, clientsReadWhatWasCompressed)
{
    std::string noise, pattern;  // noise does not become smaller, so that it fills the buffers of the libraries
    for (uint32_t i = 0, state = 1; i < 300'000; ++i) {
        state = state * 1664525 + 1013904223;
        noise += static_cast<char>(state >> 24);
        pattern += static_cast<char>('a' + i % 7);
    }
    const std::vector<std::vector<std::string>> answers = {{}, {""}, {"{}"}, {"[", "", noise, pattern, "]"}};
    for (const auto& parts : answers) {
        const std::string text = host::compressed(Coding::identity, parts);
        EXPECT_EQ(text, parts.empty() ? "" : parts.size() == 1 ? parts[0] : "[" + noise + pattern + "]");
        for (const Coding coding : {Coding::gzip, Coding::zstd}) {
            const std::string bytes = host::compressed(coding, parts);
            EXPECT_EQ(decompressed(coding, bytes, text.size()), text) << host::nameOf(coding);
            EXPECT_LT(bytes.size(), noise.size() + 10'000);  // of the pattern, little is left
        }
    }
}

}  // namespace
