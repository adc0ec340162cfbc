#include "Render/PixelConversion.h"

#include <cstring>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace halvane {

namespace {

// BT.709 scaled to the limited range (219 steps of luma, 224 of chroma) in 8-bit fixed point.
// Every product and sum fits 16 bits, which lets the compiler work on eight or sixteen pixels
// at once; the result is within one step of the exact value.
constexpr int yR = 47, yG = 157, yB = 16;     // 0.2126, 0.7152, 0.0722 × 219/255 × 256
constexpr int uR = -26, uG = -87, uB = 113;   // -0.1146, -0.3854, 0.5 × 224/255 × 256
constexpr int vR = 112, vG = -102, vB = -10;  // 0.5, -0.4542, -0.0458 × 224/255 × 256

inline uint32_t pixelAt(const uint8_t* row, int x) {
    uint32_t p;
    std::memcpy(&p, row + 4 * x, 4);  // little-endian: B in the low byte, then G, R, A
    return p;
}

void lumaScalar(const uint8_t* bgra, int from, int width, uint8_t* out) {
    for (int x = from; x < width; ++x) {
        uint32_t p = pixelAt(bgra, x);
        auto b = static_cast<uint16_t>(p & 0xFF), g = static_cast<uint16_t>((p >> 8) & 0xFF),
             r = static_cast<uint16_t>((p >> 16) & 0xFF);
        auto sum = static_cast<uint16_t>(yR * r + yG * g + yB * b + 128);
        out[x] = static_cast<uint8_t>((sum >> 8) + 16);
    }
}

void chromaScalar(const uint8_t* top, const uint8_t* bottom, int from, int width, uint8_t* u,
                  uint8_t* v) {
    for (int x = from; x < width / 2; ++x) {
        uint32_t a = pixelAt(top, 2 * x), b = pixelAt(top, 2 * x + 1);
        uint32_t c = pixelAt(bottom, 2 * x), d = pixelAt(bottom, 2 * x + 1);
        auto mean = [&](int shift) {
            return static_cast<int16_t>((((a >> shift) & 0xFF) + ((b >> shift) & 0xFF) +
                                         ((c >> shift) & 0xFF) + ((d >> shift) & 0xFF) + 2) >> 2);
        };
        int16_t blue = mean(0), green = mean(8), red = mean(16);
        u[x] = static_cast<uint8_t>(((uR * red + uG * green + uB * blue + 128) >> 8) + 128);
        v[x] = static_cast<uint8_t>(((vR * red + vG * green + vB * blue + 128) >> 8) + 128);
    }
}

#if defined(__SSE2__)

// Every x86-64 processor has SSE2; the compiler does not vectorise the chroma's 2 × 2 means on
// its own, and this conversion was a tenth of an export's time. Same arithmetic as the scalar
// code, lane for lane, so both give identical bytes.

// Blue, green and red of eight pixels, one 16-bit lane each.
struct Channels8 {
    __m128i b, g, r;
};

inline Channels8 channels8(const uint8_t* pixels) {
    const __m128i low = _mm_set1_epi32(0xFF);
    __m128i p0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
    __m128i p1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + 16));
    Channels8 c;
    c.b = _mm_packs_epi32(_mm_and_si128(p0, low), _mm_and_si128(p1, low));
    c.g = _mm_packs_epi32(_mm_and_si128(_mm_srli_epi32(p0, 8), low),
                          _mm_and_si128(_mm_srli_epi32(p1, 8), low));
    c.r = _mm_packs_epi32(_mm_and_si128(_mm_srli_epi32(p0, 16), low),
                          _mm_and_si128(_mm_srli_epi32(p1, 16), low));
    return c;
}

inline __m128i weighted(const Channels8& c, int kr, int kg, int kb) {
    __m128i sum = _mm_add_epi16(_mm_mullo_epi16(c.r, _mm_set1_epi16(static_cast<int16_t>(kr))),
                                _mm_mullo_epi16(c.g, _mm_set1_epi16(static_cast<int16_t>(kg))));
    sum = _mm_add_epi16(sum, _mm_mullo_epi16(c.b, _mm_set1_epi16(static_cast<int16_t>(kb))));
    return _mm_add_epi16(sum, _mm_set1_epi16(128));
}

inline __m128i luma8(const Channels8& c) {
    // The sum of the weighted channels stays below 2^16, so it is read unsigned.
    __m128i sum = weighted(c, yR, yG, yB);
    return _mm_add_epi16(_mm_srli_epi16(sum, 8), _mm_set1_epi16(16));
}

// Sums neighbouring lanes: eight lanes of a and eight of b become the eight pair sums.
inline __m128i pairSums(__m128i a, __m128i b) {
    const __m128i ones = _mm_set1_epi16(1);
    return _mm_packs_epi32(_mm_madd_epi16(a, ones), _mm_madd_epi16(b, ones));
}

inline __m128i blockMean(__m128i top0, __m128i bottom0, __m128i top1, __m128i bottom1) {
    __m128i sum = pairSums(_mm_add_epi16(top0, bottom0), _mm_add_epi16(top1, bottom1));
    return _mm_srli_epi16(_mm_add_epi16(sum, _mm_set1_epi16(2)), 2);
}

inline void storeChroma(__m128i weightedSum, uint8_t* out) {
    __m128i value = _mm_add_epi16(_mm_srai_epi16(weightedSum, 8), _mm_set1_epi16(128));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(value, value));
}

inline void storeLuma(const Channels8& first, const Channels8& second, uint8_t* out) {
    __m128i bytes = _mm_packus_epi16(luma8(first), luma8(second));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
}

// Sixteen pixels of two rows at a time, each pixel's channels taken apart once for its luma and
// its block's chroma. Gives the first pixel left for the scalar code.
int blockRowVector(const uint8_t* top, const uint8_t* bottom, int from, int width, uint8_t* yTop,
                   uint8_t* yBottom, uint8_t* u, uint8_t* v) {
    int x = from;
    for (; x + 16 <= width; x += 16) {
        Channels8 t0 = channels8(top + 4 * x), t1 = channels8(top + 4 * x + 32);
        Channels8 b0 = channels8(bottom + 4 * x), b1 = channels8(bottom + 4 * x + 32);
        storeLuma(t0, t1, yTop + x);
        storeLuma(b0, b1, yBottom + x);
        Channels8 mean{blockMean(t0.b, b0.b, t1.b, b1.b), blockMean(t0.g, b0.g, t1.g, b1.g),
                       blockMean(t0.r, b0.r, t1.r, b1.r)};
        storeChroma(weighted(mean, uR, uG, uB), u + x / 2);
        storeChroma(weighted(mean, vR, vG, vB), v + x / 2);
    }
    return x;
}

#else

int blockRowVector(const uint8_t*, const uint8_t*, int from, int, uint8_t*, uint8_t*, uint8_t*,
                   uint8_t*) {
    return from;
}

#endif

#if defined(__x86_64__)

// The same arithmetic again, thirty-two pixels at a time, for processors with AVX2 (picked at run
// time). Packing works within 128-bit halves, so each pack is followed by a permute that puts the
// 64-bit quarters back in pixel order.
#pragma GCC push_options
#pragma GCC target("avx2")

struct Channels16 {
    __m256i b, g, r;
};

inline __m256i inOrder(__m256i packed) { return _mm256_permute4x64_epi64(packed, 0xD8); }

inline __m256i packChannel(__m256i p0, __m256i p1, int shift) {
    const __m256i low = _mm256_set1_epi32(0xFF);
    __m256i a = _mm256_and_si256(_mm256_srli_epi32(p0, shift), low);
    __m256i b = _mm256_and_si256(_mm256_srli_epi32(p1, shift), low);
    return inOrder(_mm256_packs_epi32(a, b));
}

inline Channels16 channels16(const uint8_t* pixels) {
    __m256i p0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    __m256i p1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + 32));
    return {packChannel(p0, p1, 0), packChannel(p0, p1, 8), packChannel(p0, p1, 16)};
}

inline __m256i weighted16(const Channels16& c, int kr, int kg, int kb) {
    __m256i sum = _mm256_add_epi16(
        _mm256_mullo_epi16(c.r, _mm256_set1_epi16(static_cast<int16_t>(kr))),
        _mm256_mullo_epi16(c.g, _mm256_set1_epi16(static_cast<int16_t>(kg))));
    sum = _mm256_add_epi16(sum, _mm256_mullo_epi16(c.b, _mm256_set1_epi16(static_cast<int16_t>(kb))));
    return _mm256_add_epi16(sum, _mm256_set1_epi16(128));
}

inline void storeLuma32(const Channels16& first, const Channels16& second, uint8_t* out) {
    __m256i a = _mm256_add_epi16(_mm256_srli_epi16(weighted16(first, yR, yG, yB), 8),
                                 _mm256_set1_epi16(16));
    __m256i b = _mm256_add_epi16(_mm256_srli_epi16(weighted16(second, yR, yG, yB), 8),
                                 _mm256_set1_epi16(16));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), inOrder(_mm256_packus_epi16(a, b)));
}

inline __m256i blockMean16(__m256i top0, __m256i bottom0, __m256i top1, __m256i bottom1) {
    const __m256i ones = _mm256_set1_epi16(1);
    __m256i first = _mm256_madd_epi16(_mm256_add_epi16(top0, bottom0), ones);
    __m256i second = _mm256_madd_epi16(_mm256_add_epi16(top1, bottom1), ones);
    __m256i sum = inOrder(_mm256_packs_epi32(first, second));
    return _mm256_srli_epi16(_mm256_add_epi16(sum, _mm256_set1_epi16(2)), 2);
}

inline void storeChroma16(__m256i weightedSum, uint8_t* out) {
    __m256i value = _mm256_add_epi16(_mm256_srai_epi16(weightedSum, 8), _mm256_set1_epi16(128));
    __m256i bytes = inOrder(_mm256_packus_epi16(value, value));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
}

int blockRowAvx2(const uint8_t* top, const uint8_t* bottom, int width, uint8_t* yTop,
                 uint8_t* yBottom, uint8_t* u, uint8_t* v) {
    int x = 0;
    for (; x + 32 <= width; x += 32) {
        Channels16 t0 = channels16(top + 4 * x), t1 = channels16(top + 4 * x + 64);
        Channels16 b0 = channels16(bottom + 4 * x), b1 = channels16(bottom + 4 * x + 64);
        storeLuma32(t0, t1, yTop + x);
        storeLuma32(b0, b1, yBottom + x);
        Channels16 mean{blockMean16(t0.b, b0.b, t1.b, b1.b), blockMean16(t0.g, b0.g, t1.g, b1.g),
                        blockMean16(t0.r, b0.r, t1.r, b1.r)};
        storeChroma16(weighted16(mean, uR, uG, uB), u + x / 2);
        storeChroma16(weighted16(mean, vR, vG, vB), v + x / 2);
    }
    return x;
}

#pragma GCC pop_options

bool hasAvx2() { return __builtin_cpu_supports("avx2"); }

#else

int blockRowAvx2(const uint8_t*, const uint8_t*, int, uint8_t*, uint8_t*, uint8_t*, uint8_t*) {
    return 0;
}
bool hasAvx2() { return false; }

#endif

}  // namespace

void convertBgraToYuv420(const uint8_t* bgra, int bytesPerRow, int width, int height, uint8_t* y,
                         int yStride, uint8_t* u, int uStride, uint8_t* v, int vStride) {
    static const bool wide = hasAvx2();
    for (int row = 0; row + 1 < height; row += 2) {
        const uint8_t* top = bgra + static_cast<long>(row) * bytesPerRow;
        const uint8_t* bottom = top + bytesPerRow;
        uint8_t* yTop = y + static_cast<long>(row) * yStride;
        uint8_t* uRow = u + static_cast<long>(row / 2) * uStride;
        uint8_t* vRow = v + static_cast<long>(row / 2) * vStride;
        int done = wide ? blockRowAvx2(top, bottom, width, yTop, yTop + yStride, uRow, vRow) : 0;
        done = blockRowVector(top, bottom, done, width, yTop, yTop + yStride, uRow, vRow);
        lumaScalar(top, done, width, yTop);
        lumaScalar(bottom, done, width, yTop + yStride);
        chromaScalar(top, bottom, done / 2, width, uRow, vRow);
    }
}

namespace {

// BT.709 limited range back to full-range RGB, in 8-bit fixed point (1.164, 1.793, 0.213, 0.533,
// 2.112 × 256).
constexpr int kLuma = 298, kRv = 459, kGu = 55, kGv = 136, kBu = 541;

inline uint32_t clampByte(int value) { return uint32_t(value < 0 ? 0 : value > 255 ? 255 : value); }

__attribute__((target_clones("avx2", "default")))
void blockRowToBgra(const uint8_t* y0, const uint8_t* y1, const uint8_t* u, const uint8_t* v, int pairs,
                    uint32_t* top, uint32_t* bottom) {
    for (int i = 0; i < pairs; ++i) {
        const int d = u[i] - 128, e = v[i] - 128;
        const int r = kRv * e + 128, g = -kGu * d - kGv * e + 128, b = kBu * d + 128;
        auto pixel = [&](uint8_t luma) {
            const int c = kLuma * (luma - 16);
            return 0xff000000u | clampByte((c + r) >> 8) << 16 | clampByte((c + g) >> 8) << 8 | clampByte((c + b) >> 8);
        };
        top[2 * i] = pixel(y0[2 * i]);
        top[2 * i + 1] = pixel(y0[2 * i + 1]);
        bottom[2 * i] = pixel(y1[2 * i]);
        bottom[2 * i + 1] = pixel(y1[2 * i + 1]);
    }
}

}  // namespace

void convertYuv420ToBgra(const uint8_t* y, int yStride, const uint8_t* u, int uStride, const uint8_t* v,
                         int vStride, int width, int height, uint8_t* bgra, int bytesPerRow) {
    for (int row = 0; row + 1 < height; row += 2) {
        const uint8_t* yTop = y + static_cast<long>(row) * yStride;
        auto* top = reinterpret_cast<uint32_t*>(bgra + static_cast<long>(row) * bytesPerRow);
        auto* bottom = reinterpret_cast<uint32_t*>(bgra + static_cast<long>(row + 1) * bytesPerRow);
        blockRowToBgra(yTop, yTop + yStride, u + static_cast<long>(row / 2) * uStride,
                       v + static_cast<long>(row / 2) * vStride, width / 2, top, bottom);
    }
}

}  // namespace halvane
