// Compresses what is sent to a client, with zlib and libzstd.
#include "host/base/compression.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <memory>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#define ZLIB_CONST  // zlib takes its input as pointer to const
#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

namespace host {

namespace {

// The fastest levels that make a tree about nine times smaller. Higher ones save few bytes more and take much longer.
constexpr int kGzipLevel = 2;
constexpr int kZstdLevel = 2;

constexpr size_t kBufferBytes = 32 << 10;
constexpr size_t kMaxGzipInput = 1 << 30;  // of one call: zlib counts in 32 bits

// How much the client likes each coding, from 0 (refused) to 1.
struct Weights {
    static constexpr double kUnlisted = -1;
    double identity = kUnlisted, gzip = kUnlisted, zstd = kUnlisted, other = kUnlisted;

    double of(double listed) const
    {
        return listed == kUnlisted ? std::max(other, 0.0) : listed;
    }
};

std::string_view trimmed(std::string_view text)
{
    constexpr std::string_view kSpaces = " \t";
    const size_t first = text.find_first_not_of(kSpaces);
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(kSpaces) - first + 1);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Returns the part of the list up to the separator, and removes both from the list.
std::string_view takeUpTo(char separator, std::string_view& list)
{
    const std::string_view element = list.substr(0, list.find(separator));
    list.remove_prefix(std::min(list.size(), element.size() + 1));
    return trimmed(element);
}

// Returns the weight that "q=0.5" gives to a coding: 1 without a parameter, 0 when it is malformed.
double parseWeight(std::string_view parameter)
{
    if (parameter.empty()) {
        return 1;
    }
    if (!equalsIgnoringCase(parameter.substr(0, 2), "q=")) {
        return 0;
    }
    double weight = 0;
    const char* const pEnd = parameter.data() + parameter.size();
    const auto [pRest, error] = std::from_chars(parameter.data() + 2, pEnd, weight, std::chars_format::fixed);
    return error == std::errc() && pRest == pEnd && weight >= 0 && weight <= 1 ? weight : 0;
}

Weights parseWeights(std::string_view list)
{
    Weights weights;
    const struct {
        std::string_view name;
        double& weight;
    } codings[] = {
        {"identity", weights.identity}, {"gzip", weights.gzip}, {"x-gzip", weights.gzip},
        {"zstd", weights.zstd},         {"*", weights.other},
    };
    while (!list.empty()) {
        std::string_view parameter = takeUpTo(',', list);
        const std::string_view name = takeUpTo(';', parameter);
        for (const auto& coding : codings) {
            if (equalsIgnoringCase(name, coding.name)) {
                coding.weight = parseWeight(trimmed(parameter));
            }
        }
    }
    return weights;
}

size_t totalSize(const std::vector<std::string>& parts)
{
    return std::accumulate(parts.begin(), parts.end(), size_t{0},
                           [](size_t total, const std::string& part) { return total + part.size(); });
}

std::string joined(const std::vector<std::string>& parts)
{
    std::string text;
    text.reserve(totalSize(parts));
    for (const std::string& part : parts) {
        text += part;
    }
    return text;
}

// Compresses to the gzip format. Owns the state of zlib.
class GzipStream {
public:
    GzipStream()
    {
        constexpr int kGzipFormat = 16, kMaxMemory = 9;
        const int result =
            deflateInit2(&m_state, kGzipLevel, Z_DEFLATED, MAX_WBITS + kGzipFormat, kMaxMemory, Z_DEFAULT_STRATEGY);
        if (result == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        if (result != Z_OK) {
            throw std::runtime_error("zlib cannot start");
        }
    }
    ~GzipStream()
    {
        deflateEnd(&m_state);
    }
    GzipStream(const GzipStream&) = delete;
    GzipStream& operator=(const GzipStream&) = delete;

    void add(std::string_view text)
    {
        while (!text.empty()) {
            const std::string_view piece = text.substr(0, kMaxGzipInput);
            text.remove_prefix(piece.size());
            run(piece, Z_NO_FLUSH);
        }
    }

    std::string finish()
    {
        run("", Z_FINISH);
        return std::move(m_out);
    }

private:
    void run(std::string_view piece, int flush)
    {
        m_state.next_in = reinterpret_cast<const Bytef*>(piece.data());
        m_state.avail_in = static_cast<uInt>(piece.size());
        do {
            m_state.next_out = reinterpret_cast<Bytef*>(m_buffer);
            m_state.avail_out = sizeof(m_buffer);
            if (deflate(&m_state, flush) == Z_STREAM_ERROR) {
                throw std::runtime_error("zlib cannot compress");
            }
            m_out.append(m_buffer, sizeof(m_buffer) - m_state.avail_out);
        } while (m_state.avail_out == 0);
    }

    z_stream m_state{};
    std::string m_out;
    char m_buffer[kBufferBytes];
};

size_t checkZstd(size_t result)
{
    if (ZSTD_getErrorCode(result) == ZSTD_error_memory_allocation) {
        throw std::bad_alloc();
    }
    if (ZSTD_isError(result)) {
        throw std::runtime_error(std::string("zstd: ") + ZSTD_getErrorName(result));
    }
    return result;
}

// Compresses to the Zstandard format.
class ZstdStream {
public:
    // totalBytes: the size of all texts that will be added.
    explicit ZstdStream(size_t totalBytes)
    {
        if (!m_pContext) {
            throw std::bad_alloc();
        }
        checkZstd(ZSTD_CCtx_setParameter(m_pContext.get(), ZSTD_c_compressionLevel, kZstdLevel));
        checkZstd(ZSTD_CCtx_setPledgedSrcSize(m_pContext.get(), totalBytes));  // a small text then needs little memory
    }

    void add(std::string_view text)
    {
        run(text, ZSTD_e_continue);
    }

    std::string finish()
    {
        run("", ZSTD_e_end);
        return std::move(m_out);
    }

private:
    void run(std::string_view text, ZSTD_EndDirective directive)
    {
        ZSTD_inBuffer in{text.data(), text.size(), 0};
        bool isDone = false;
        while (!isDone) {
            ZSTD_outBuffer out{m_buffer, sizeof(m_buffer), 0};
            const size_t pending = checkZstd(ZSTD_compressStream2(m_pContext.get(), &out, &in, directive));
            m_out.append(m_buffer, out.pos);
            isDone = directive == ZSTD_e_end ? pending == 0 : in.pos == in.size;
        }
    }

    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> m_pContext{ZSTD_createCCtx(), &ZSTD_freeCCtx};
    std::string m_out;
    char m_buffer[kBufferBytes];
};

template <class Stream>
std::string streamed(Stream stream, const std::vector<std::string>& parts)
{
    for (const std::string& part : parts) {
        stream.add(part);
    }
    return stream.finish();
}

}  // namespace

Coding acceptedCoding(const char* szAcceptEncoding)
{
    const Weights weights = parseWeights(szAcceptEncoding == nullptr ? "" : szAcceptEncoding);
    const double gzip = weights.of(weights.gzip), zstd = weights.of(weights.zstd);
    const double best = std::max({gzip, zstd, weights.identity});
    if (best <= 0) {
        return Coding::identity;
    }
    if (zstd == best) {
        return Coding::zstd;
    }
    return gzip == best ? Coding::gzip : Coding::identity;
}

const char* nameOf(Coding coding)
{
    switch (coding) {
        case Coding::gzip:
            return "gzip";
        case Coding::zstd:
            return "zstd";
        case Coding::identity:
            break;
    }
    return "identity";
}

std::string compressed(Coding coding, const std::vector<std::string>& parts)
{
    switch (coding) {
        case Coding::gzip:
            return streamed(GzipStream(), parts);
        case Coding::zstd:
            return streamed(ZstdStream(totalSize(parts)), parts);
        case Coding::identity:
            break;
    }
    return joined(parts);
}

}  // namespace host
