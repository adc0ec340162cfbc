#include "Capture/Screenshots/ScreenshotBoundaryLineTally.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace halvane {

namespace {

constexpr float hardShare = 0.55f;
constexpr float softShare = 0.85f;

using Tally = ScreenshotBoundaryLineTally;

void addScalar(Tally& t, std::uint8_t v) {
    t.sum += v;
    t.soft += v >= Tally::softByte;
    t.hard += v >= Tally::hardByte;
}

}  // namespace

std::optional<float> ScreenshotBoundaryLineTally::edgeMean(int n) const {
    const float count = static_cast<float>(n);
    const float mean = static_cast<float>(sum) / count;
    const bool strong = mean >= hardByte && static_cast<float>(hard) / count >= hardShare;
    const bool faint = mean >= softByte && static_cast<float>(soft) / count >= softShare;
    return strong || faint ? std::optional(mean) : std::nullopt;
}

#if defined(__SSE2__)

// Sixteen columns at a time: each row is one 16-byte load whose lanes are the candidates. Sums
// run in 16-bit lanes and counts in 8-bit lanes, emptied into 32-bit totals every 255 rows,
// before they can wrap.
void ScreenshotBoundaryLineTally::tallyColumns(const std::uint8_t* plane, std::size_t planeBytes, std::size_t stride,
                                               int first, int count, int top, int bottom, Tally* out) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i soft = _mm_set1_epi8(char(softByte));
    const __m128i hard = _mm_set1_epi8(char(hardByte));
    for (int group = 0; group < count; group += 16) {
        const int lanes = std::min(16, count - group);
        std::uint32_t sums[16] = {}, softs[16] = {}, hards[16] = {};
        __m128i sumLow = zero, sumHigh = zero, softCount = zero, hardCount = zero;
        auto drain = [&] {
            alignas(16) std::uint16_t low[8], high[8];
            alignas(16) std::uint8_t s[16], h[16];
            _mm_store_si128(reinterpret_cast<__m128i*>(low), sumLow);
            _mm_store_si128(reinterpret_cast<__m128i*>(high), sumHigh);
            _mm_store_si128(reinterpret_cast<__m128i*>(s), softCount);
            _mm_store_si128(reinterpret_cast<__m128i*>(h), hardCount);
            for (int i = 0; i < 8; ++i) sums[i] += low[i], sums[i + 8] += high[i];
            for (int i = 0; i < 16; ++i) softs[i] += s[i], hards[i] += h[i];
            sumLow = sumHigh = softCount = hardCount = zero;
        };
        auto add = [&](__m128i v) {
            sumLow = _mm_add_epi16(sumLow, _mm_unpacklo_epi8(v, zero));
            sumHigh = _mm_add_epi16(sumHigh, _mm_unpackhi_epi8(v, zero));
            // v ≥ level exactly where max(v, level) = v; the all-ones lane subtracts as +1.
            softCount = _mm_sub_epi8(softCount, _mm_cmpeq_epi8(_mm_max_epu8(v, soft), v));
            hardCount = _mm_sub_epi8(hardCount, _mm_cmpeq_epi8(_mm_max_epu8(v, hard), v));
        };
        const std::size_t column = std::size_t(first + group);
        // Rows whose 16-byte load ends inside the plane; only the plane's last row or so fails that.
        const int wholeLoads = planeBytes >= column + 16 ? int((planeBytes - column - 16) / stride) : -1;
        int y = top;
        for (const int safeEnd = std::min(bottom, wholeLoads); y <= safeEnd;) {
            for (const int runEnd = std::min(safeEnd, y + 254); y <= runEnd; ++y)
                add(_mm_loadu_si128(reinterpret_cast<const __m128i*>(plane + std::size_t(y) * stride + column)));
            drain();
        }
        for (; y <= bottom; ++y) {
            // The plane's last bytes: copy what exists; the lanes past it are never reported.
            const std::size_t offset = std::size_t(y) * stride + column;
            alignas(16) std::uint8_t tail[16] = {};
            std::memcpy(tail, plane + offset, std::min<std::size_t>(16, planeBytes - offset));
            add(_mm_load_si128(reinterpret_cast<const __m128i*>(tail)));
        }
        drain();
        for (int i = 0; i < lanes; ++i) out[group + i] = Tally{sums[i], softs[i], hards[i]};
    }
}

ScreenshotBoundaryLineTally ScreenshotBoundaryLineTally::tallyRun(const std::uint8_t* bytes, int n) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i soft = _mm_set1_epi8(char(softByte));
    const __m128i hard = _mm_set1_epi8(char(hardByte));
    __m128i sum = zero, softTotal = zero, hardTotal = zero, softCount = zero, hardCount = zero;
    int pending = 0;
    int i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
        sum = _mm_add_epi64(sum, _mm_sad_epu8(v, zero));
        softCount = _mm_sub_epi8(softCount, _mm_cmpeq_epi8(_mm_max_epu8(v, soft), v));
        hardCount = _mm_sub_epi8(hardCount, _mm_cmpeq_epi8(_mm_max_epu8(v, hard), v));
        if (++pending == 255) {
            softTotal = _mm_add_epi64(softTotal, _mm_sad_epu8(softCount, zero));
            hardTotal = _mm_add_epi64(hardTotal, _mm_sad_epu8(hardCount, zero));
            softCount = hardCount = zero;
            pending = 0;
        }
    }
    softTotal = _mm_add_epi64(softTotal, _mm_sad_epu8(softCount, zero));
    hardTotal = _mm_add_epi64(hardTotal, _mm_sad_epu8(hardCount, zero));
    auto total = [](__m128i v) {
        return std::uint32_t(_mm_cvtsi128_si64(v) + _mm_cvtsi128_si64(_mm_unpackhi_epi64(v, v)));
    };
    Tally t{total(sum), total(softTotal), total(hardTotal)};
    for (; i < n; ++i) addScalar(t, bytes[i]);
    return t;
}

#else

void ScreenshotBoundaryLineTally::tallyColumns(const std::uint8_t* plane, std::size_t, std::size_t stride, int first,
                                               int count, int top, int bottom, Tally* out) {
    std::fill(out, out + count, Tally{});
    for (int y = top; y <= bottom; ++y) {
        const std::uint8_t* row = plane + std::size_t(y) * stride + std::size_t(first);
        for (int i = 0; i < count; ++i) addScalar(out[i], row[i]);
    }
}

ScreenshotBoundaryLineTally ScreenshotBoundaryLineTally::tallyRun(const std::uint8_t* bytes, int n) {
    Tally t;
    for (int i = 0; i < n; ++i) addScalar(t, bytes[i]);
    return t;
}

#endif

}  // namespace halvane
