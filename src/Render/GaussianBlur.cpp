// Gaussian blur with clamp-to-edge, separable. Small sigmas convolve with the exact kernel; from
// sigma 3 on, three running box filters of matched widths stand in for the Gaussian (their
// convolution is within a percent of it), so the cost no longer grows with sigma. From sigma 5 on the
// picture is first reduced by a whole factor, blurred, and enlarged again: a wide blur has no detail
// left that the reduction could lose. Every pass runs down columns, whole rows at a time, so memory
// is read in order and the inner loops vectorise; rows are blurred as columns of the transpose.

#include "Render/RasterKernels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace halvane {
namespace {

constexpr double exactKernelLimit = 3.0;

struct Plane {
    uchar* bits;
    int width;
    int height;
    qsizetype stride;
    int channels;

    uchar* row(int y) const { return bits + static_cast<qsizetype>(y) * stride; }
    const uchar* clampedRow(int y) const { return row(std::clamp(y, 0, height - 1)); }
    int rowBytes() const { return width * channels; }
};

// Widths of three boxes whose convolution has the variance of a Gaussian of this sigma: some of
// width wl, the rest wl + 2, both odd, with the split chosen to match sigma² exactly in the mean.
std::array<int, 3> boxWidths(double sigma) {
    constexpr int n = 3;
    double ideal = std::sqrt(12 * sigma * sigma / n + 1);
    int wl = static_cast<int>(std::floor(ideal));
    if (wl % 2 == 0) --wl;
    wl = std::max(wl, 1);
    int wu = wl + 2;
    double mIdeal = (12 * sigma * sigma - n * wl * wl - 4.0 * n * wl - 3.0 * n) / (-4.0 * wl - 4);
    int m = static_cast<int>(std::lround(mIdeal));
    std::array<int, 3> widths{};
    for (int i = 0; i < n; ++i) widths[i] = i < m ? wl : wu;
    return widths;
}

// One running box of radius r down every column at once: each output row is the running sum of
// the rows around it, so memory is read row by row and the inner loop vectorises.
void boxColumns(const Plane& src, const Plane& dst, int r, std::vector<int32_t>& acc) {
    const int n = src.rowBytes();
    const float scale = 1.0f / static_cast<float>(2 * r + 1);
    acc.assign(n, 0);
    int32_t* a = acc.data();
    {
        const uchar* first = src.row(0);
        for (int i = 0; i < n; ++i) a[i] = (r + 1) * static_cast<int32_t>(first[i]);
        for (int k = 1; k <= r; ++k) {
            const uchar* row = src.clampedRow(k);
            for (int i = 0; i < n; ++i) a[i] += row[i];
        }
    }
    for (int y = 0; y < src.height; ++y) {
        uchar* out = dst.row(y);
        const uchar* add = src.clampedRow(y + r + 1);
        const uchar* sub = src.clampedRow(y - r);
        for (int i = 0; i < n; ++i) {
            out[i] = static_cast<uchar>(static_cast<int32_t>(static_cast<float>(a[i]) * scale + 0.5f));
            a[i] += static_cast<int32_t>(add[i]) - static_cast<int32_t>(sub[i]);
        }
    }
}

// Exact kernel down every column, in float so that it vectorises.
void kernelColumns(const Plane& src, const Plane& dst, const std::vector<float>& weights, std::vector<float>& acc) {
    const int n = src.rowBytes();
    const int radius = static_cast<int>(weights.size() / 2);
    acc.resize(n);
    float* a = acc.data();
    for (int y = 0; y < src.height; ++y) {
        const uchar* centre = src.row(y);
        const float w0 = weights[radius];
        for (int i = 0; i < n; ++i) a[i] = 0.5f + w0 * static_cast<float>(centre[i]);
        // The kernel is symmetric: rows at equal distance share one multiply.
        for (int k = 1; k <= radius; ++k) {
            const uchar* above = src.clampedRow(y - k);
            const uchar* below = src.clampedRow(y + k);
            const float w = weights[radius + k];
            for (int i = 0; i < n; ++i) a[i] += w * static_cast<float>(static_cast<int32_t>(above[i]) + below[i]);
        }
        uchar* out = dst.row(y);
        for (int i = 0; i < n; ++i) out[i] = static_cast<uchar>(static_cast<int32_t>(a[i]));
    }
}

std::vector<float> gaussianWeights(double sigma) {
    const int radius = static_cast<int>(std::ceil(3 * sigma));
    std::vector<float> w(2 * radius + 1);
    double total = 0;
    for (int k = -radius; k <= radius; ++k) total += std::exp(-(k * k) / (2 * sigma * sigma));
    for (int k = -radius; k <= radius; ++k) w[k + radius] = static_cast<float>(std::exp(-(k * k) / (2 * sigma * sigma)) / total);
    return w;
}

// Blurs the columns of `src` into `dst`; `scratch` (same shape) holds the middle pass.
void blurColumns(const Plane& src, const Plane& dst, const Plane& scratch, double sigma) {
    if (sigma < exactKernelLimit) {
        std::vector<float> acc;
        kernelColumns(src, dst, gaussianWeights(sigma), acc);
        return;
    }
    const auto widths = boxWidths(sigma);
    std::vector<int32_t> acc;
    boxColumns(src, dst, widths[0] / 2, acc);
    boxColumns(dst, scratch, widths[1] / 2, acc);
    boxColumns(scratch, dst, widths[2] / 2, acc);
}

// Rows become columns, in tiles that stay in cache.
template <class Pixel>
void transpose(const Plane& src, const Plane& dst) {
    constexpr int tile = 32;
    for (int y0 = 0; y0 < src.height; y0 += tile)
        for (int x0 = 0; x0 < src.width; x0 += tile) {
            const int y1 = std::min(y0 + tile, src.height), x1 = std::min(x0 + tile, src.width);
            for (int y = y0; y < y1; ++y) {
                const auto* in = reinterpret_cast<const Pixel*>(src.row(y));
                for (int x = x0; x < x1; ++x) reinterpret_cast<Pixel*>(dst.row(x))[y] = in[x];
            }
        }
}

void transposePlane(const Plane& src, const Plane& dst) {
    if (src.channels == 4) transpose<uint32_t>(src, dst);
    else transpose<uchar>(src, dst);
}

// Pixel storage that can be viewed as either orientation of the picture.
struct Buffer {
    std::vector<uchar> bytes;
    Plane as(int width, int height, int channels) {
        return {bytes.data(), width, height, static_cast<qsizetype>(width) * channels, channels};
    }
};

// Full-resolution separable blur: columns, then rows as the columns of the transposed picture.
void blurFull(const Plane& image, double sigma) {
    const int W = image.width, H = image.height, C = image.channels;
    const size_t size = static_cast<size_t>(W) * H * C;
    Buffer a{std::vector<uchar>(size)}, b{std::vector<uchar>(size)}, c{std::vector<uchar>(size)};
    blurColumns(image, a.as(W, H, C), b.as(W, H, C), sigma);
    transposePlane(a.as(W, H, C), c.as(H, W, C));
    blurColumns(c.as(H, W, C), a.as(H, W, C), b.as(H, W, C), sigma);
    transposePlane(a.as(H, W, C), image);
}

// ---- large sigmas: blur a reduced copy, then enlarge it again

// Mean of each f × f cell (the last row and column of cells may be partial). Rows of a cell are
// summed whole first, which vectorises; only the short sum across each cell is done per pixel.
void reduce(const Plane& src, const Plane& dst, int f) {
    const int C = src.channels;
    const int n = src.rowBytes();
    std::vector<uint32_t> columnSums(n);
    for (int by = 0; by < dst.height; ++by) {
        const int y0 = by * f, y1 = std::min(y0 + f, src.height);
        std::fill(columnSums.begin(), columnSums.end(), 0);
        uint32_t* sums = columnSums.data();
        for (int y = y0; y < y1; ++y) {
            const uchar* row = src.row(y);
            for (int i = 0; i < n; ++i) sums[i] += row[i];
        }
        uchar* out = dst.row(by);
        for (int bx = 0; bx < dst.width; ++bx) {
            const int x0 = bx * f, x1 = std::min(x0 + f, src.width);
            const uint32_t count = static_cast<uint32_t>((x1 - x0) * (y1 - y0));
            for (int c = 0; c < C; ++c) {
                uint32_t total = 0;
                for (int x = x0; x < x1; ++x) total += sums[x * C + c];
                out[bx * C + c] = static_cast<uchar>((total + count / 2) / count);
            }
        }
    }
}

// Where output pixel i samples the reduced picture: the two neighbours and the weight of the second
// (0 ... 256), with the cell centres as sample points and the edges clamped.
struct Tap {
    int first;
    int second;
    uint32_t weight;
};

std::vector<Tap> enlargeTaps(int outLength, int inLength, int f) {
    std::vector<Tap> taps(outLength);
    for (int i = 0; i < outLength; ++i) {
        const double u = std::clamp((i + 0.5) / f - 0.5, 0.0, static_cast<double>(inLength - 1));
        const int first = static_cast<int>(std::floor(u));
        const int second = std::min(first + 1, inLength - 1);
        taps[i] = {first, second, static_cast<uint32_t>(std::lround((u - first) * 256))};
    }
    return taps;
}

void enlargeRow1(const uchar* line, uchar* out, const std::vector<Tap>& taps) {
    for (size_t x = 0; x < taps.size(); ++x) {
        const Tap& t = taps[x];
        out[x] = static_cast<uchar>((line[t.first] * (256 - t.weight) + line[t.second] * t.weight + 128) >> 8);
    }
}

// Four channels at once, two per 32-bit half-word pair: each product stays under 16 bits.
void enlargeRow4(const uchar* line, uchar* out, const std::vector<Tap>& taps) {
    const auto* in = reinterpret_cast<const uint32_t*>(line);
    auto* dst = reinterpret_cast<uint32_t*>(out);
    for (size_t x = 0; x < taps.size(); ++x) {
        const Tap& t = taps[x];
        const uint32_t p = in[t.first], q = in[t.second], w = t.weight, v = 256 - t.weight;
        const uint32_t rb = (((p & 0x00FF00FFu) * v + (q & 0x00FF00FFu) * w + 0x00800080u) >> 8) & 0x00FF00FFu;
        const uint32_t ag = (((p >> 8) & 0x00FF00FFu) * v + ((q >> 8) & 0x00FF00FFu) * w + 0x00800080u) & 0xFF00FF00u;
        dst[x] = rb | ag;
    }
}

// Bilinear enlargement: each reduced row is widened once, then every output row is a blend of two
// widened rows, a loop over whole rows that vectorises.
void enlarge(const Plane& small, const Plane& image, int f) {
    const int C = small.channels;
    const auto columns = enlargeTaps(image.width, small.width, f);
    const auto rows = enlargeTaps(image.height, small.height, f);
    const int n = image.rowBytes();
    std::vector<uchar> wide(static_cast<size_t>(n) * small.height);
    for (int y = 0; y < small.height; ++y) {
        if (C == 4) enlargeRow4(small.row(y), &wide[static_cast<size_t>(y) * n], columns);
        else enlargeRow1(small.row(y), &wide[static_cast<size_t>(y) * n], columns);
    }
    for (int y = 0; y < image.height; ++y) {
        const Tap& r = rows[y];
        const uchar* a = &wide[static_cast<size_t>(r.first) * n];
        const uchar* b = &wide[static_cast<size_t>(r.second) * n];
        const uint16_t wb = static_cast<uint16_t>(r.weight), wa = static_cast<uint16_t>(256 - r.weight);
        uchar* out = image.row(y);
        for (int i = 0; i < n; ++i) out[i] = static_cast<uchar>((a[i] * wa + b[i] * wb + 128) >> 8);
    }
}

// How much to reduce before blurring: the reduced blur keeps a sigma of two and a half pixels or more.
int reductionFactor(double sigma) { return std::clamp(static_cast<int>(sigma / 2.5), 1, 8); }

void blurReduced(const Plane& image, double sigma, int f) {
    const int w = (image.width + f - 1) / f, h = (image.height + f - 1) / f;
    Buffer storage{std::vector<uchar>(static_cast<size_t>(w) * h * image.channels)};
    const Plane small = storage.as(w, h, image.channels);
    reduce(image, small, f);
    // Reducing (a box of f) and enlarging (a tent of f) already spread the picture a little.
    const double added = (f * f - 1) / 12.0 + f * f / 6.0;
    const double reducedSigma = std::sqrt(std::max(sigma * sigma - added, sigma * sigma / 4)) / f;
    blurFull(small, reducedSigma);
    enlarge(small, image, f);
}

int channelsOf(QImage::Format format) {
    switch (format) {
    case QImage::Format_ARGB32_Premultiplied: return 4;
    case QImage::Format_Grayscale8:
    case QImage::Format_Alpha8: return 1;
    default: return 0;
    }
}

}  // namespace

void gaussianBlur(QImage& image, double sigma) {
    if (!(sigma > 0) || image.isNull() || !std::isfinite(sigma)) return;
    if (channelsOf(image.format()) == 0) image.convertTo(QImage::Format_ARGB32_Premultiplied);
    const Plane plane{image.bits(), image.width(), image.height(), image.bytesPerLine(), channelsOf(image.format())};
    const int f = reductionFactor(sigma);
    if (f > 1 && image.width() >= 2 * f && image.height() >= 2 * f) blurReduced(plane, sigma, f);
    else blurFull(plane, sigma);
}

QImage gaussianBlurred(const QImage& image, double sigma) {
    QImage copy = image.copy();
    gaussianBlur(copy, sigma);
    return copy;
}

}  // namespace halvane
