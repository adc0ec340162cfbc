#include "Render/LiquidGlass.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <thread>

namespace halvane {

namespace {

inline float clamp01f(float a) { return std::clamp(a, 0.0f, 1.0f); }
inline float smooth(float a) { return a * a * (3 - 2 * a); }

// Card and band values in points, single precision.
struct LensFrame {
    float cx, cy, hw, hh, r, w, p, aa;
    float cardMinX, cardMaxY, cardWidth, cardHeight;
    float targetMinX, targetMaxY;
};

// One channel of the source, bilinear, indices held to the image.
inline float sampleChannel(const LiquidGlass::Source& s, float X, float Y, int channel) {
    if (s.width <= 0 || s.height <= 0) return 0;
    float fx = s.scale * (X - s.originX) - 0.5f;
    float fy = s.scale * (s.topY - Y) - 0.5f;
    fx = std::clamp(fx, 0.0f, float(s.width - 1));
    fy = std::clamp(fy, 0.0f, float(s.height - 1));
    int x0 = int(fx), y0 = int(fy);
    int x1 = std::min(x0 + 1, s.width - 1), y1 = std::min(y0 + 1, s.height - 1);
    float ax = fx - float(x0), ay = fy - float(y0);
    const std::uint8_t* px = s.pixels.data();
    size_t stride = size_t(s.width) * 4;
    auto at = [&](int x, int y) { return float(px[size_t(y) * stride + size_t(x) * 4 + size_t(channel)]); };
    float top = at(x0, y0) + (at(x1, y0) - at(x0, y0)) * ax;
    float bottom = at(x0, y1) + (at(x1, y1) - at(x0, y1)) * ax;
    return (top + (bottom - top) * ay) / 255.0f;
}

void shadePixel(const LensFrame& f, const LiquidGlass::Source& src, float x, float y, std::uint8_t* out) {
    float qx = std::fabs(x - f.cx) - f.hw + f.r;
    float qy = std::fabs(y - f.cy) - f.hh + f.r;
    float sx = (x - f.cx) < 0 ? -1.0f : 1.0f;
    float sy = (y - f.cy) < 0 ? -1.0f : 1.0f;
    float d, nx, ny;
    if (qx > 0 && qy > 0) {
        float L = std::max(std::sqrt(qx * qx + qy * qy), 0.0001f);
        d = L - f.r;
        nx = qx * sx / L;
        ny = qy * sy / L;
    } else if (qx > qy) {
        d = qx - f.r;
        nx = sx;
        ny = 0;
    } else {
        d = qy - f.r;
        nx = 0;
        ny = sy;
    }
    if (!(-f.aa < d && d < f.w + f.aa)) return;

    // A half-round profile across the band: strong bending at both edges, none in the middle.
    float t = clamp01f(d / f.w);
    float u = 2 * t - 1;
    float s = std::max(std::sqrt(std::max(1 - u * u, 0.0f)), 0.22f);
    float slope = std::clamp(u / s, -2.4f, 2.4f);
    float shift = f.w * slope * -0.38f;
    float ox = nx * shift, oy = ny * shift;

    // BGRA in memory: red is byte 2, green 1, blue 0.
    float R = sampleChannel(src, x + ox * 1.07f, y + oy * 1.07f, 2);
    float G = sampleChannel(src, x + ox, y + oy, 1);
    float B = sampleChannel(src, x + ox * 0.93f, y + oy * 0.93f, 0);

    float lum = 0.299f * R + 0.587f * G + 0.114f * B;
    R = R + (lum - R) * 0.1f + 0.02f;
    G = G + (lum - G) * 0.1f + 0.02f;
    B = B + (lum - B) * 0.1f + 0.03f;

    float g = clamp01f(((x - f.cardMinX) / f.cardWidth + (f.cardMaxY - y) / f.cardHeight) / 2);
    float veil = (1 - smooth(g)) * 0.15f + 0.03f;
    float fl = ny * 0.8f - nx * 0.6f;
    float lit = std::max(fl, 0.0f), back = std::max(-fl, 0.0f);
    float e0 = f.w - 2 * f.p, e1 = f.w - 0.5f * f.p;
    float rim = e1 == e0 ? (d >= e0 ? 1.0f : 0.0f) : smooth(clamp01f((d - e0) / (e1 - e0)));
    float outer = smooth(clamp01f((t - 0.7f) / 0.3f)) * (lit * lit * 0.82f + 0.18f) * 0.85f;
    float inner = smooth(clamp01f((t - 0.04f) / 0.1f)) * (1 - smooth(clamp01f((t - 0.14f) / 0.22f))) *
                  (back * back * 0.9f + 0.1f) * 0.55f;
    float A = std::min(inner + outer + veil + (lit * lit * 0.45f + 0.25f) * rim, 1.0f);

    float h = 1 - smooth(clamp01f((t - 0.16f) / -0.16f)) * 0.16f;
    float k = std::min(smooth(clamp01f((f.aa + d) / (2 * f.aa))), 1 - smooth(clamp01f((d - (f.w - f.aa)) / (2 * f.aa))));

    auto channel = [&](float c) { return std::uint8_t(clamp01f(h * (c + (1 - c) * A) * k) * 255.0f); };
    out[0] = channel(B);
    out[1] = channel(G);
    out[2] = channel(R);
    out[3] = std::uint8_t(clamp01f(k) * 255.0f);
}

void renderRow(const LensFrame& f, const LiquidGlass::Source& src, int j, int W, std::uint8_t* row) {
    float y = f.targetMaxY - f.p * (float(j) + 0.5f);
    float qy = std::fabs(y - f.cy) - f.hh + f.r;
    auto visit = [&](int i0, int i1) {
        i0 = std::max(i0, 0);
        i1 = std::min(i1, W - 1);
        for (int i = i0; i <= i1; ++i) {
            float x = f.targetMinX + f.p * (float(i) + 0.5f);
            shadePixel(f, src, x, y, row + size_t(i) * 4);
        }
    };
    if (qy <= 0) {
        // Beside the straight sides only the two strips of the band can be covered.
        auto column = [&](float x) { return int(std::floor((x - f.targetMinX) / f.p - 0.5f)); };
        visit(column(f.cx - f.hw - f.w - f.p) - 1, column(f.cx - f.hw + f.p) + 1);
        visit(column(f.cx + f.hw - f.p) - 1, column(f.cx + f.hw + f.w + f.p) + 1);
    } else {
        visit(0, W - 1);
    }
}

}  // namespace

std::shared_ptr<const LiquidGlass::Source> LiquidGlass::cachedSource(const QImage& image, const Rect& rect,
                                                                     double scale) {
    qint64 key = image.isNull() ? 0 : image.cacheKey();
    std::lock_guard lock(cacheLock_);
    for (const auto& e : cache_)
        if (e.imageKey == key && e.rect == rect && e.scale == scale) return e.source;

    auto source = std::make_shared<Source>();
    source->width = std::max(1, int(std::lround(rect.width() * scale)));
    source->height = std::max(1, int(std::lround(rect.height() * scale)));
    source->originX = float(rect.minX());
    source->topY = float(rect.maxY());
    source->scale = float(scale);
    source->pixels.assign(size_t(source->width) * size_t(source->height) * 4, 0);
    if (!image.isNull()) {
        QImage view(source->pixels.data(), source->width, source->height, source->width * 4,
                    QImage::Format_ARGB32_Premultiplied);
        QPainter painter(&view);
        painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
        // The image fills `rect`, which is also the source's own extent.
        painter.drawImage(QRectF(0, 0, source->width, source->height), image);
    }
    cache_.insert(cache_.begin(), CacheEntry{key, rect, scale, source});
    if (cache_.size() > 3) cache_.resize(3);
    return source;
}

size_t LiquidGlass::cachedSourceCount() const {
    std::lock_guard lock(cacheLock_);
    return cache_.size();
}

std::optional<QImage> LiquidGlass::image(const CardBorder::Band& band, const QImage& background,
                                         const Rect& backgroundRect, double scale) {
    Rect target = CardBorder::rasterTarget(band);
    int W = std::max(1, int(std::lround(target.width() * scale)));
    int H = std::max(1, int(std::lround(target.height() * scale)));
    if (W < 3 || H < 3 || band.width <= 0.5) return std::nullopt;
    std::shared_ptr<const Source> source = cachedSource(background, backgroundRect, scale);

    const Rect& card = band.cardRect;
    LensFrame f{};
    f.cx = float(card.midX());
    f.cy = float(card.midY());
    f.hw = float(card.width() / 2);
    f.hh = float(card.height() / 2);
    f.r = std::min({f.hw, f.hh, float(band.radius)});
    f.w = float(band.width);
    f.p = float(1 / scale);
    f.aa = f.p / 2;
    f.cardMinX = float(card.minX());
    f.cardMaxY = float(card.maxY());
    f.cardWidth = float(card.width());
    f.cardHeight = float(card.height());
    f.targetMinX = float(target.minX());
    f.targetMaxY = float(target.maxY());

    QImage out(W, H, QImage::Format_ARGB32_Premultiplied);
    if (out.isNull()) return std::nullopt;
    out.fill(Qt::transparent);

    unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    int stripeRows = std::max(H / int(threads * 4), 16);
    int stripes = (H + stripeRows - 1) / stripeRows;
    std::atomic<int> next{0};
    auto work = [&] {
        for (int s = next++; s < stripes; s = next++) {
            int j1 = std::min(H, (s + 1) * stripeRows);
            for (int j = s * stripeRows; j < j1; ++j) renderRow(f, *source, j, W, out.scanLine(j));
        }
    };
    std::vector<std::thread> pool;
    unsigned helpers = std::min<unsigned>(threads, unsigned(stripes)) - 1;
    for (unsigned i = 0; i < helpers; ++i) pool.emplace_back(work);
    work();
    for (auto& t : pool) t.join();
    return out;
}

}  // namespace halvane
