// Tests which coding the host chooses for a client, and that clients can decompress what it sends.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <zlib.h>
#include <zstd.h>

#include "host/base/compression.h"
#include "host/http/static_files.h"

namespace {

using host::Coding;

TEST(Compression, choosesTheCodingThatTheClientPrefers)
{
    const std::pair<Coding, std::vector<const char*>> expectations[] = {
        {Coding::identity,
         {nullptr, "", "gzip;q=0", "gzip;q=0.5, identity", "*;q=0, identity;q=0", "gzipped, ;q=1", "gzip;q=2, zstd;q=x",
          "gzip;q=nan, zstd;level=1"}},
        {Coding::gzip,
         {"gzip, deflate, br", "x-gzip", " ,\tGZip ; Q=0.5 ,, br", "zstd;q=0.5, gzip;q=0.8",
          "gzip;q=0.5, identity;q=0.5", "*, zstd;q=0", "gzip, *;q=0"}},
        {Coding::zstd, {"gzip, deflate, br, zstd", "gzip;q=0.000, zstd;q=0.001", "*"}},
    };
    for (const auto& [coding, headers] : expectations) {
        for (const char* szHeader : headers) {
            EXPECT_EQ(host::acceptedCoding(szHeader), coding) << (szHeader == nullptr ? "no header" : szHeader);
        }
    }
}

// Returns what a client reads, at most 1 MiB.
std::string decompressed(Coding coding, std::string bytes)
{
    std::string text(1 << 20, '\0');
    if (coding == Coding::zstd) {
        text.resize(ZSTD_decompress(text.data(), text.size(), bytes.data(), bytes.size()));
    } else if (coding == Coding::gzip) {
        z_stream state{};
        state.next_in = reinterpret_cast<Bytef*>(bytes.data());
        state.avail_in = static_cast<uInt>(bytes.size());
        state.next_out = reinterpret_cast<Bytef*>(text.data());
        state.avail_out = static_cast<uInt>(text.size());
        inflateInit2(&state, MAX_WBITS + 16);  // reads only the gzip format
        EXPECT_EQ(inflate(&state, Z_FINISH), Z_STREAM_END);
        text.resize(state.total_out);
        inflateEnd(&state);
    }
    return coding == Coding::identity ? bytes : text;
}

TEST(Compression, clientsReadWhatWasCompressed)
{
    std::string noise;  // does not become smaller, and therefore fills the buffers of the libraries
    for (unsigned i = 0, state = 1; i < 300'000; ++i, state = state * 1664525 + 1013904223) {
        noise += static_cast<char>(state >> 24);
    }
    const std::string pattern(300'000, 'a');
    for (const Coding coding : {Coding::identity, Coding::gzip, Coding::zstd}) {
        EXPECT_EQ(decompressed(coding, host::compressed(coding, {})), "");
        const std::string bytes = host::compressed(coding, {"[", "", noise, pattern, "]"});
        EXPECT_EQ(decompressed(coding, bytes), "[" + noise + pattern + "]") << host::nameOf(coding);
        EXPECT_EQ(bytes.size() < 310'000, coding != Coding::identity) << host::nameOf(coding);
    }
}

TEST(Compression, pageHasALargeFileInEachCodingAndASmallOneAsItIs)
{
    const std::filesystem::path folder = testing::TempDir() + "compression_page";
    std::filesystem::create_directory(folder);
    const std::string script(1024, 'x'), index(1023, 'y');
    std::ofstream(folder / "large.js") << script;
    std::ofstream(folder / "index.html") << index;
    host::StaticFiles files;
    files.load(folder);
    std::filesystem::remove_all(folder);
    std::set<std::string> etags;
    for (const Coding coding : {Coding::identity, Coding::gzip, Coding::zstd}) {
        const host::Representation& small = files.find("/")->preferredBy(coding);
        EXPECT_TRUE(small.coding == Coding::identity && small.bytes == index);
        const host::Representation& large = files.find("/large.js")->preferredBy(coding);
        EXPECT_EQ(large.coding, coding);
        EXPECT_EQ(decompressed(coding, large.bytes), script);
        etags.insert(large.etag);
    }
    EXPECT_EQ(etags.size(), 3U);
}

}  // namespace
