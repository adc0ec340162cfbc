#include "Render/Resampling.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace halvane {

namespace {

// Where the centre of each destination pixel falls in the source: the two neighbouring source
// pixels and the weight of the second in 256ths. Kept as separate arrays so the loops stream them.
struct Taps {
    std::vector<int> first, second;
    std::vector<uint32_t> weight;
    std::vector<uint16_t> byteWeight;  // the weight repeated for each of a pixel's four bytes
};

Taps tapsFor(int begin, int count, double sourceOrigin, double step, double targetOrigin, int sourceSize,
             uint32_t one = 256) {
    Taps taps;
    taps.first.resize(size_t(count));
    taps.second.resize(size_t(count));
    taps.weight.resize(size_t(count));
    for (int k = 0; k < count; ++k) {
        double u = sourceOrigin + (begin + k + 0.5 - targetOrigin) * step - 0.5;
        // Far outside the picture only its edge counts; degenerate geometry (NaN) reads the first pixel.
        u = std::isfinite(u) ? std::clamp(u, -1.0, double(sourceSize)) : 0.0;
        const double whole = std::floor(u);
        int i = int(whole);
        uint32_t f = uint32_t(std::lround((u - whole) * one));
        if (f == one) ++i, f = 0;
        if (i < 0) i = 0, f = 0;
        if (i >= sourceSize - 1) i = sourceSize - 1, f = 0;
        // The last pixel alone is taken as all of the pair that ends with it, so that the pair
        // always lies inside the row.
        if (i == sourceSize - 1 && sourceSize >= 2) i = sourceSize - 2, f = one;
        taps.first[size_t(k)] = i;
        taps.second[size_t(k)] = std::min(i + 1, sourceSize - 1);
        taps.weight[size_t(k)] = f;
    }
    return taps;
}

void repeatWeightsPerByte(Taps& taps) {
    taps.byteWeight.resize(taps.weight.size() * 4);
    for (size_t k = 0; k < taps.weight.size(); ++k)
        for (size_t c = 0; c < 4; ++c) taps.byteWeight[4 * k + c] = uint16_t(taps.weight[k]);
}

// Each destination pixel's two source pixels, side by side in two rows for mixBytes: one 64-bit
// load fetches both (the taps were made so that the second is always the next pixel).
void gatherPairs(uint32_t* __restrict left, uint32_t* __restrict right, const uint32_t* __restrict pixels,
                 const int* __restrict first, int count) {
    for (int k = 0; k < count; ++k) {
        uint64_t pair;
        std::memcpy(&pair, pixels + first[k], 8);
        left[k] = uint32_t(pair);
        right[k] = uint32_t(pair >> 32);
    }
}

// a × (256 − f) + b × f + 128, over 256, byte by byte in 16-bit lanes (the sum stays below 65536):
// the same rounding as mixPixels, in a loop the compiler turns into vector multiplies. Compiled
// for AVX2 and for plain x86-64, picked at load time.
__attribute__((target_clones("avx2", "default")))
void mixBytes(uint8_t* out, const uint8_t* a, const uint8_t* b, const uint16_t* weight, int bytes) {
    for (int i = 0; i < bytes; ++i) out[i] = uint8_t(uint16_t(a[i] * (256 - weight[i]) + b[i] * weight[i] + 128) >> 8);
}

__attribute__((target_clones("avx2", "default")))
void mixBytes(uint8_t* out, const uint8_t* a, const uint8_t* b, uint16_t weight, int bytes) {
    const uint16_t other = uint16_t(256 - weight);
    for (int i = 0; i < bytes; ++i) out[i] = uint8_t(uint16_t(a[i] * other + b[i] * weight + 128) >> 8);
}

inline uint32_t average2(uint32_t a, uint32_t b) {
    const uint32_t rb = (((a & 0xff00ffu) + (b & 0xff00ffu) + 0x10001u) >> 1) & 0xff00ffu;
    const uint32_t ag = ((((a >> 8) & 0xff00ffu) + ((b >> 8) & 0xff00ffu) + 0x10001u) << 7) & 0xff00ff00u;
    return rb | ag;
}

inline uint32_t average4(uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    const uint32_t m = 0xff00ffu;
    const uint32_t rb = (((a & m) + (b & m) + (c & m) + (d & m) + 0x20002u) >> 2) & m;
    const uint32_t ag =
        ((((a >> 8) & m) + ((b >> 8) & m) + ((c >> 8) & m) + ((d >> 8) & m) + 0x20002u) << 6) & 0xff00ff00u;
    return rb | ag;
}

}  // namespace

QImage halved(const QImage& input, bool halveWidth, bool halveHeight) {
    const QImage image = input.format() == QImage::Format_ARGB32_Premultiplied
                             ? input
                             : input.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return image;
    const int w = image.width(), h = image.height();
    const int nw = halveWidth ? (w + 1) / 2 : w, nh = halveHeight ? (h + 1) / 2 : h;
    QImage out(nw, nh, QImage::Format_ARGB32_Premultiplied);
    if (out.isNull()) return out;
    for (int y = 0; y < nh; ++y) {
        const int y0 = halveHeight ? 2 * y : y, y1 = halveHeight ? std::min(2 * y + 1, h - 1) : y;
        const auto* a = reinterpret_cast<const uint32_t*>(image.constScanLine(y0));
        const auto* b = reinterpret_cast<const uint32_t*>(image.constScanLine(y1));
        auto* o = reinterpret_cast<uint32_t*>(out.scanLine(y));
        if (!halveWidth) {
            for (int x = 0; x < nw; ++x) o[x] = average2(a[x], b[x]);
            continue;
        }
        for (int x = 0; x < nw; ++x) {
            const int x0 = 2 * x, x1 = std::min(2 * x + 1, w - 1);
            o[x] = halveHeight ? average4(a[x0], a[x1], b[x0], b[x1]) : average2(a[x0], a[x1]);
        }
    }
    return out;
}

void resampleInto(QImage& destination, const QRect& clip, const QImage& sourceImage, const QRectF& sourceRect,
                  const QRectF& targetRect) {
    if (destination.isNull() || sourceImage.isNull() || !(targetRect.width() > 0) || !(targetRect.height() > 0) ||
        !(sourceRect.width() > 0) || !(sourceRect.height() > 0))
        return;
    if (destination.format() != QImage::Format_ARGB32_Premultiplied)
        destination.convertTo(QImage::Format_ARGB32_Premultiplied);
    const QRect area = clip.intersected(destination.rect());
    if (area.isEmpty()) return;

    QImage source = sourceImage.format() == QImage::Format_ARGB32_Premultiplied
                        ? sourceImage
                        : sourceImage.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    double fromX = sourceRect.x(), fromY = sourceRect.y();
    double stepX = sourceRect.width() / targetRect.width(), stepY = sourceRect.height() / targetRect.height();
    // Bilinear sampling reads two source pixels per destination pixel: beyond a shrink of 2 it
    // would skip pixels and flicker, so the source is box-halved until the shrink is 2 or less.
    while (true) {
        const bool halveWidth = stepX > 2 && source.width() > 1;
        const bool halveHeight = stepY > 2 && source.height() > 1;
        if (!halveWidth && !halveHeight) break;
        source = halved(source, halveWidth, halveHeight);
        if (halveWidth) fromX /= 2, stepX /= 2;
        if (halveHeight) fromY /= 2, stepY /= 2;
    }

    const int width = area.width();
    Taps x = tapsFor(area.left(), width, fromX, stepX, targetRect.x(), source.width());
    repeatWeightsPerByte(x);
    const Taps y = tapsFor(area.top(), area.height(), fromY, stepY, targetRect.y(), source.height());
    // Horizontally resampled source rows, two slots by row parity: the two rows a destination row
    // reads always differ in parity, and rows are visited in rising order, so each is made once.
    // A row is made by gathering each destination pixel's two source pixels, then mixing them.
    std::vector<uint32_t> rows(size_t(width) * 2), left(size_t(width), 0), right(size_t(width), 0);
    int rowIn[2] = {-1, -1};
    auto row = [&](int sourceRow) {
        uint32_t* slot = rows.data() + size_t(sourceRow & 1) * size_t(width);
        if (rowIn[sourceRow & 1] != sourceRow) {
            const auto* pixels = reinterpret_cast<const uint32_t*>(source.constScanLine(sourceRow));
            if (source.width() >= 2) {
                gatherPairs(left.data(), right.data(), pixels, x.first.data(), width);
            } else {
                std::fill(left.begin(), left.end(), pixels[0]);
                std::fill(right.begin(), right.end(), pixels[0]);
            }
            mixBytes(reinterpret_cast<uint8_t*>(slot), reinterpret_cast<const uint8_t*>(left.data()),
                     reinterpret_cast<const uint8_t*>(right.data()), x.byteWeight.data(), width * 4);
            rowIn[sourceRow & 1] = sourceRow;
        }
        return slot;
    };
    for (int k = 0; k < area.height(); ++k) {
        auto* out = reinterpret_cast<uint32_t*>(destination.scanLine(area.top() + k)) + area.left();
        const uint32_t f = y.weight[size_t(k)];
        const uint32_t* a = row(y.first[size_t(k)]);
        if (f == 0) {
            std::memcpy(out, a, size_t(width) * 4);
            continue;
        }
        mixBytes(reinterpret_cast<uint8_t*>(out), reinterpret_cast<const uint8_t*>(a),
                 reinterpret_cast<const uint8_t*>(row(y.second[size_t(k)])), uint16_t(f), width * 4);
    }
}

namespace {

// A plane at half its width and/or height, each byte the rounded mean of those it replaces.
PlaneView halvedPlane(const PlaneView& plane, bool halveWidth, bool halveHeight, std::vector<uint8_t>& storage) {
    const int w = plane.width, h = plane.height;
    const int nw = halveWidth ? (w + 1) / 2 : w, nh = halveHeight ? (h + 1) / 2 : h;
    std::vector<uint8_t> out(size_t(nw) * size_t(nh));
    for (int y = 0; y < nh; ++y) {
        const uint8_t* a = plane.data + size_t(halveHeight ? 2 * y : y) * size_t(plane.stride);
        const uint8_t* b = plane.data + size_t(halveHeight ? std::min(2 * y + 1, h - 1) : y) * size_t(plane.stride);
        uint8_t* o = out.data() + size_t(y) * size_t(nw);
        for (int x = 0; x < nw; ++x) {
            const int x0 = halveWidth ? 2 * x : x, x1 = halveWidth ? std::min(2 * x + 1, w - 1) : x;
            o[x] = uint8_t(halveWidth ? (a[x0] + a[x1] + b[x0] + b[x1] + 2) >> 2 : (a[x] + b[x] + 1) >> 1);
        }
    }
    storage = std::move(out);
    return {storage.data(), nw, nw, nh};
}

// Each destination byte of a plane row mixes two neighbouring source bytes:
// (left × (128 − f) + right × f + 64) / 128. Destination bytes go in blocks of eight whose sources
// all lie within sixteen bytes of the block's first one (true for every shrink up to 2, the most
// the halving leaves), so one load and one byte shuffle fetch all eight pairs.
struct PairBlocks {
    std::vector<int> base;         // per block, the first source byte it reads
    std::vector<uint8_t> shuffle;  // per block, 16 bytes: each pair's two offsets from the base
    std::vector<uint8_t> weight;   // per block, 16 bytes: each pair's weights 128 − f and f
};

PairBlocks pairBlocks(const Taps& taps, int count) {
    PairBlocks blocks;
    const int n = count / 8;
    blocks.base.resize(size_t(n));
    blocks.shuffle.resize(size_t(n) * 16);
    blocks.weight.resize(size_t(n) * 16);
    for (int b = 0; b < n; ++b) {
        const int base = taps.first[size_t(8 * b)];
        blocks.base[size_t(b)] = base;
        // Rounding can stretch a block at a shrink of 2 past sixteen bytes: then every row goes
        // the slow way.
        if (taps.first[size_t(8 * b + 7)] + 1 - base > 15) return {};
        for (int j = 0; j < 8; ++j) {
            const size_t k = size_t(8 * b + j), at = size_t(16 * b + 2 * j);
            blocks.shuffle[at] = uint8_t(taps.first[k] - base);
            blocks.shuffle[at + 1] = uint8_t(taps.first[k] - base + 1);
            blocks.weight[at] = uint8_t(128 - taps.weight[k]);
            blocks.weight[at + 1] = uint8_t(taps.weight[k]);
        }
    }
    return blocks;
}

void mixPairsScalar(const uint8_t* row, const Taps& taps, int from, int count, uint8_t* out) {
    for (int k = from; k < count; ++k) {
        const uint32_t f = taps.weight[size_t(k)];
        const int i = taps.first[size_t(k)];
        out[k] = uint8_t((row[i] * (128 - f) + row[i + 1] * f + 64) >> 7);
    }
}

#if defined(__x86_64__)

// The multiply-add takes its second operand as signed bytes, so the pixels are moved down by 128
// and the weights, which sum to 128, bring that back as 128 × 128 in the rounding constant.
// Blocks `from` to `to`; `row` is where the blocks' bases count from.
__attribute__((target("ssse3"))) void mixPairsBlocks(const uint8_t* row, const PairBlocks& blocks, int from, int to,
                                                     uint8_t* out) {
    const __m128i flip = _mm_set1_epi8(char(0x80));
    const __m128i bias = _mm_set1_epi16(128 * 128 + 64);
    for (int b = from; b < to; ++b) {
        const __m128i source = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + blocks.base[size_t(b)]));
        const __m128i order = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks.shuffle.data() + 16 * b));
        const __m128i weight = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks.weight.data() + 16 * b));
        const __m128i pairs = _mm_xor_si128(_mm_shuffle_epi8(source, order), flip);
        const __m128i mixed = _mm_srli_epi16(_mm_add_epi16(_mm_maddubs_epi16(weight, pairs), bias), 7);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 8 * b), _mm_packus_epi16(mixed, mixed));
    }
}

// The same, two blocks at a time: the byte shuffle works within each 128-bit half, so each half
// takes one block.
__attribute__((target("avx2"))) void mixPairsBlocksAvx2(const uint8_t* row, const PairBlocks& blocks, int from,
                                                        int to, uint8_t* out) {
    const __m256i flip = _mm256_set1_epi8(char(0x80));
    const __m256i bias = _mm256_set1_epi16(128 * 128 + 64);
    int b = from;
    for (; b + 2 <= to; b += 2) {
        const __m256i source = _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row + blocks.base[size_t(b)]))),
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + blocks.base[size_t(b + 1)])), 1);
        const __m256i order = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blocks.shuffle.data() + 16 * b));
        const __m256i weight = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blocks.weight.data() + 16 * b));
        const __m256i pairs = _mm256_xor_si256(_mm256_shuffle_epi8(source, order), flip);
        const __m256i mixed = _mm256_srli_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(weight, pairs), bias), 7);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(mixed, mixed), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * b), _mm256_castsi256_si128(packed));
    }
    mixPairsBlocks(row, blocks, b, to, out);
}

// 0: plain code only, 1: SSSE3, 2: AVX2 as well.
int byteShuffleLevel() {
    return __builtin_cpu_supports("avx2") ? 2 : __builtin_cpu_supports("ssse3") ? 1 : 0;
}

#else

void mixPairsBlocks(const uint8_t*, const PairBlocks&, int, int, uint8_t*) {}
void mixPairsBlocksAvx2(const uint8_t*, const PairBlocks&, int, int, uint8_t*) {}
int byteShuffleLevel() { return 0; }

#endif

}  // namespace

// Everything about scaling one plane that depends only on the placement, kept while frames keep
// the same placement (every frame of a still camera).
struct PlaneScaler::Plan {
    QRect clip;
    QRectF sourceRect, targetRect;
    int sourceWidth = 0, sourceHeight = 0;
    Taps x, y;
    PairBlocks blocks;
    int spanFrom = 0, spanTo = 0, direct = 0, tailFrom = 0;
    std::vector<uint8_t> span, rows;

    bool fits(const QRect& c, const PlaneView& source, const QRectF& from, const QRectF& to) const {
        return clip == c && sourceRect == from && targetRect == to && sourceWidth == source.width &&
               sourceHeight == source.height;
    }
};

PlaneScaler::PlaneScaler() = default;
PlaneScaler::~PlaneScaler() = default;
PlaneScaler::PlaneScaler(PlaneScaler&&) noexcept = default;
PlaneScaler& PlaneScaler::operator=(PlaneScaler&&) noexcept = default;

void PlaneScaler::scale(uint8_t* destination, int destinationStride, const QRect& clip, const PlaneView& sourcePlane,
                        const QRectF& sourceRect, const QRectF& targetRect) {
    static const int level = byteShuffleLevel();
    if (!destination || !sourcePlane.data || sourcePlane.width < 1 || sourcePlane.height < 1 || clip.isEmpty() ||
        !(targetRect.width() > 0) || !(targetRect.height() > 0) || !(sourceRect.width() > 0) ||
        !(sourceRect.height() > 0))
        return;
    // A shrink by more than 2 halves the source first (box filter) until it is 2 or less.
    PlaneView source = sourcePlane;
    std::vector<uint8_t> halves;
    double fromX = sourceRect.x(), fromY = sourceRect.y();
    double stepX = sourceRect.width() / targetRect.width(), stepY = sourceRect.height() / targetRect.height();
    while (true) {
        const bool halveWidth = stepX > 2 && source.width > 1;
        const bool halveHeight = stepY > 2 && source.height > 1;
        if (!halveWidth && !halveHeight) break;
        source = halvedPlane(source, halveWidth, halveHeight, halves);
        if (halveWidth) fromX /= 2, stepX /= 2;
        if (halveHeight) fromY /= 2, stepY /= 2;
    }
    if (!plan_ || !plan_->fits(clip, sourcePlane, sourceRect, targetRect))
        plan_ = makePlan(clip, sourcePlane, sourceRect, targetRect, source, fromX, stepX, fromY, stepY, level);
    Plan& plan = *plan_;

    const int width = clip.width(), blockCount = int(plan.blocks.base.size());
    int rowIn[2] = {-1, -1};
    auto mixBlocks = level == 2 ? mixPairsBlocksAvx2 : mixPairsBlocks;
    auto row = [&](int sourceRow) {
        uint8_t* slot = plan.rows.data() + size_t(sourceRow & 1) * size_t(width);
        if (rowIn[sourceRow & 1] == sourceRow) return slot;
        const uint8_t* pixels = source.data + size_t(sourceRow) * size_t(source.stride);
        if (level > 0) mixBlocks(pixels + plan.spanFrom, plan.blocks, 0, plan.direct, slot);
        std::memcpy(plan.span.data() + (plan.tailFrom - plan.spanFrom), pixels + plan.tailFrom,
                    size_t(plan.spanTo - plan.tailFrom + 1));
        if (level > 0) mixBlocks(plan.span.data(), plan.blocks, plan.direct, blockCount, slot);
        mixPairsScalar(plan.span.data(), plan.x, 8 * blockCount, width, slot);
        rowIn[sourceRow & 1] = sourceRow;
        return slot;
    };
    for (int k = 0; k < clip.height(); ++k) {
        uint8_t* out = destination + size_t(clip.top() + k) * size_t(destinationStride) + size_t(clip.left());
        const uint32_t f = plan.y.weight[size_t(k)];
        const uint8_t* a = row(plan.y.first[size_t(k)]);
        if (f == 0) {
            std::memcpy(out, a, size_t(width));
            continue;
        }
        mixBytes(out, a, row(plan.y.second[size_t(k)]), uint16_t(f), width);
    }
}

std::unique_ptr<PlaneScaler::Plan> PlaneScaler::makePlan(const QRect& clip, const PlaneView& original,
                                                         const QRectF& sourceRect, const QRectF& targetRect,
                                                         const PlaneView& source, double fromX, double stepX,
                                                         double fromY, double stepY, int level) {
    auto plan = std::make_unique<Plan>();
    plan->clip = clip;
    plan->sourceRect = sourceRect;
    plan->targetRect = targetRect;
    plan->sourceWidth = original.width;
    plan->sourceHeight = original.height;
    const int width = clip.width();
    Taps& x = plan->x;
    x = tapsFor(clip.left(), width, fromX, stepX, targetRect.x(), source.width, 128);
    plan->y = tapsFor(clip.top(), clip.height(), fromY, stepY, targetRect.y(), source.height);
    // The taps count from the first byte any of them reads. A pair that would start on the last
    // byte is moved on by one with its weight flipped, reading the zero padding after it.
    const int spanFrom = x.first.front(), spanTo = std::min(x.first.back() + 1, source.width - 1);
    for (int k = 0; k < width; ++k) {
        x.first[size_t(k)] -= spanFrom;
        if (x.weight[size_t(k)] == 128) x.first[size_t(k)] += 1, x.weight[size_t(k)] = 0;
    }
    plan->blocks = level > 0 ? pairBlocks(x, width) : PairBlocks{};
    const int blockCount = int(plan->blocks.base.size());
    // Blocks whose sixteen-byte load stays inside the row's own bytes read it where it is; the
    // rest, and the plain tail, read a zero-padded copy of the row's end.
    int direct = 0;
    while (direct < blockCount && spanFrom + plan->blocks.base[size_t(direct)] + 16 <= source.width) ++direct;
    const int tailFirst = direct < blockCount ? plan->blocks.base[size_t(direct)]
                                              : (8 * blockCount < width ? x.first[size_t(8 * blockCount)] : 0);
    plan->spanFrom = spanFrom;
    plan->spanTo = spanTo;
    plan->direct = direct;
    plan->tailFrom = spanFrom + std::min(tailFirst, spanTo - spanFrom);
    plan->span.assign(size_t(spanTo - spanFrom + 1) + 32, 0);
    plan->rows.resize(size_t(width) * 2);
    return plan;
}

void resamplePlaneInto(uint8_t* destination, int destinationStride, const QRect& clip, const PlaneView& source,
                       const QRectF& sourceRect, const QRectF& targetRect) {
    PlaneScaler().scale(destination, destinationStride, clip, source, sourceRect, targetRect);
}

}  // namespace halvane
