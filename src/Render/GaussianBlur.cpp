// Gaussian blur with clamp-to-edge, separable. Small sigmas convolve with the exact kernel; from
// sigma 3 on, three running box filters of matched widths stand in for the Gaussian (their
// convolution is within a percent of it), so the cost no longer grows with sigma. Vertical passes
// walk whole rows at a time, which keeps memory access sequential and lets the compiler vectorise.

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

// One running box of radius r along a row of n pixels with C interleaved channels.
template <int C>
void boxRow(const uchar* src, uchar* dst, int n, int r) {
    const float scale = 1.0f / static_cast<float>(2 * r + 1);
    std::array<uint32_t, C> sum{};
    auto at = [&](int x, int c) { return static_cast<uint32_t>(src[std::clamp(x, 0, n - 1) * C + c]); };
    for (int c = 0; c < C; ++c) {
        sum[c] = static_cast<uint32_t>(r + 1) * at(0, c);
        for (int i = 1; i <= r; ++i) sum[c] += at(i, c);
    }
    auto store = [&](int x) {
        for (int c = 0; c < C; ++c) dst[x * C + c] = static_cast<uchar>(static_cast<float>(sum[c]) * scale + 0.5f);
    };
    // Edges clamp their indices; the long middle stretch needs no clamping.
    int middleBegin = std::min(r, n);
    int middleEnd = std::max(middleBegin, n - r - 1);
    int x = 0;
    for (; x < middleBegin; ++x) {
        store(x);
        for (int c = 0; c < C; ++c) sum[c] += at(x + r + 1, c) - at(x - r, c);
    }
    for (; x < middleEnd; ++x) {
        store(x);
        const uchar* add = src + (x + r + 1) * C;
        const uchar* sub = src + (x - r) * C;
        for (int c = 0; c < C; ++c) sum[c] += static_cast<uint32_t>(add[c]) - sub[c];
    }
    for (; x < n; ++x) {
        store(x);
        for (int c = 0; c < C; ++c) sum[c] += at(x + r + 1, c) - at(x - r, c);
    }
}

void boxColumns(const Plane& src, const Plane& dst, int r, std::vector<uint32_t>& acc) {
    const int n = src.rowBytes();
    const float scale = 1.0f / static_cast<float>(2 * r + 1);
    acc.assign(n, 0);
    uint32_t* a = acc.data();
    {
        const uchar* first = src.row(0);
        for (int i = 0; i < n; ++i) a[i] = static_cast<uint32_t>(r + 1) * first[i];
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
            out[i] = static_cast<uchar>(static_cast<float>(a[i]) * scale + 0.5f);
            a[i] += static_cast<uint32_t>(add[i]) - sub[i];
        }
    }
}

template <int C>
void boxBlur(const Plane& image, double sigma) {
    const auto widths = boxWidths(sigma);
    std::vector<uchar> scratch(static_cast<size_t>(image.rowBytes()) * image.height);
    Plane temp{scratch.data(), image.width, image.height, image.rowBytes(), C};
    std::vector<uint32_t> acc;
    // image -> temp -> image -> temp vertically, then each row of temp back into image horizontally.
    boxColumns(image, temp, widths[0] / 2, acc);
    boxColumns(temp, image, widths[1] / 2, acc);
    boxColumns(image, temp, widths[2] / 2, acc);
    std::vector<uchar> a(image.rowBytes()), b(image.rowBytes());
    for (int y = 0; y < image.height; ++y) {
        boxRow<C>(temp.row(y), a.data(), image.width, widths[0] / 2);
        boxRow<C>(a.data(), b.data(), image.width, widths[1] / 2);
        boxRow<C>(b.data(), image.row(y), image.width, widths[2] / 2);
    }
}

// Exact kernel in 16-bit fixed point whose weights sum to exactly 65536.
std::vector<uint32_t> gaussianWeights(double sigma, int radius) {
    std::vector<double> w(2 * radius + 1);
    double total = 0;
    for (int k = -radius; k <= radius; ++k) total += w[k + radius] = std::exp(-(k * k) / (2 * sigma * sigma));
    std::vector<uint32_t> fixed(w.size());
    uint32_t sum = 0;
    for (size_t i = 0; i < w.size(); ++i) sum += fixed[i] = static_cast<uint32_t>(std::lround(w[i] / total * 65536));
    fixed[radius] += 65536 - sum;
    return fixed;
}

void exactBlur(const Plane& image, double sigma) {
    const int radius = static_cast<int>(std::ceil(3 * sigma));
    const auto weights = gaussianWeights(sigma, radius);
    const int n = image.rowBytes();
    const int C = image.channels;
    std::vector<uchar> scratch(static_cast<size_t>(n) * image.height);
    Plane temp{scratch.data(), image.width, image.height, n, C};
    std::vector<uint32_t> acc(n);
    for (int y = 0; y < image.height; ++y) {
        std::fill(acc.begin(), acc.end(), 1u << 15);
        for (int k = -radius; k <= radius; ++k) {
            const uchar* row = image.clampedRow(y + k);
            const uint32_t w = weights[k + radius];
            for (int i = 0; i < n; ++i) acc[i] += w * row[i];
        }
        uchar* out = temp.row(y);
        for (int i = 0; i < n; ++i) out[i] = static_cast<uchar>(acc[i] >> 16);
    }
    for (int y = 0; y < image.height; ++y) {
        const uchar* src = temp.row(y);
        uchar* out = image.row(y);
        for (int x = 0; x < image.width; ++x)
            for (int c = 0; c < C; ++c) {
                uint32_t sum = 1u << 15;
                for (int k = -radius; k <= radius; ++k)
                    sum += weights[k + radius] * src[std::clamp(x + k, 0, image.width - 1) * C + c];
                out[x * C + c] = static_cast<uchar>(sum >> 16);
            }
    }
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
    const int channels = channelsOf(image.format());
    Plane plane{image.bits(), image.width(), image.height(), image.bytesPerLine(), channels};
    if (sigma < exactKernelLimit) exactBlur(plane, sigma);
    else if (channels == 4) boxBlur<4>(plane, sigma);
    else boxBlur<1>(plane, sigma);
}

QImage gaussianBlurred(const QImage& image, double sigma) {
    QImage copy = image.copy();
    gaussianBlur(copy, sigma);
    return copy;
}

}  // namespace halvane
