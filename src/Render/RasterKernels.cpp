#include "Render/RasterKernels.h"

#include "Render/Resampling.h"

#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace halvane {
namespace {

// x / 255 rounded, exact for 0 ... 255 × 255.
inline uint32_t div255(uint32_t x) { return (x + 128 + ((x + 128) >> 8)) >> 8; }

void ensurePremultiplied(QImage& image) {
    if (image.format() != QImage::Format_ARGB32_Premultiplied) image.convertTo(QImage::Format_ARGB32_Premultiplied);
}

QImage premultipliedView(const QImage& image) {
    return image.format() == QImage::Format_ARGB32_Premultiplied
               ? image
               : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

QImage greyView(const QImage& mask) {
    return mask.format() == QImage::Format_Grayscale8 ? mask : mask.convertToFormat(QImage::Format_Grayscale8);
}

// Spans [begin, end) of pixel indices that make up the cells of a grid with edges at
// origin + k × cell, limited to 0 ... length. A pixel belongs to the cell holding its centre.
std::vector<std::pair<int, int>> cellSpans(double origin, double cell, int length) {
    std::vector<std::pair<int, int>> spans;
    auto firstPixelOfEdge = [](double edge) { return static_cast<int>(std::ceil(edge - 0.5)); };
    double k = std::floor((0.5 - origin) / cell);
    for (;; k += 1) {
        int begin = std::max(firstPixelOfEdge(origin + k * cell), 0);
        int end = std::min(firstPixelOfEdge(origin + (k + 1) * cell), length);
        if (begin >= length) break;
        if (end > begin) spans.emplace_back(begin, end);
    }
    return spans;
}

void fillCell(QImage& image, QRect cell, QRect region) {
    uint64_t sum[4] = {0, 0, 0, 0};
    for (int y = cell.top(); y <= cell.bottom(); ++y) {
        const uchar* row = image.constScanLine(y);
        for (int x = cell.left(); x <= cell.right(); ++x)
            for (int c = 0; c < 4; ++c) sum[c] += row[x * 4 + c];
    }
    const uint64_t count = static_cast<uint64_t>(cell.width()) * cell.height();
    uchar mean[4];
    for (int c = 0; c < 4; ++c) mean[c] = static_cast<uchar>((sum[c] + count / 2) / count);
    QRect target = cell.intersected(region);
    for (int y = target.top(); y <= target.bottom(); ++y) {
        uchar* row = image.scanLine(y);
        for (int x = target.left(); x <= target.right(); ++x)
            for (int c = 0; c < 4; ++c) row[x * 4 + c] = mean[c];
    }
}

inline uchar blendByte(uint32_t source, uint32_t destination, uint32_t weight) {
    return static_cast<uchar>(div255(source * weight + destination * (255 - weight)));
}

// The two loops of averageInto, compiled for AVX2 and for plain x86-64 and picked at load time.
__attribute__((target_clones("avx2", "default")))
void addBytes(uint16_t* sum, const uchar* row, int count) {
    for (int i = 0; i < count; ++i) sum[i] = uint16_t(sum[i] + row[i]);
}

__attribute__((target_clones("avx2", "default")))
void divideSums(uchar* out, const uint16_t* sum, uint32_t reciprocal, int count) {
    for (int i = 0; i < count; ++i) out[i] = uchar((uint32_t(sum[i]) * reciprocal + 32768) >> 16);
}

void paintShadowFromMask(QImage& target, QImage mask, QPoint maskTopLeft, const ShadowLook& style) {
    QImage tinted = tintedShadow(mask, sigmaForShadowBlur(style.blur), style.color);
    QPainter painter(&target);
    painter.drawImage(QPointF(maskTopLeft) + style.offset, tinted);
}

// The area of the mask worth rendering: around the shape by the blur's reach, and no further
// from the target than the blur can carry a shadow into it.
QRect shadowMaskArea(const QImage& target, QRectF shapeBounds, const ShadowLook& style) {
    const int reach = static_cast<int>(std::ceil(3 * sigmaForShadowBlur(style.blur))) + 2;
    QRect aroundShape = shapeBounds.toAlignedRect().adjusted(-reach, -reach, reach, reach);
    QRectF targetAtSource = QRectF(target.rect()).translated(-style.offset);
    QRect nearTarget = targetAtSource.toAlignedRect().adjusted(-reach, -reach, reach, reach);
    return aroundShape.intersected(nearTarget);
}

}  // namespace

void pixellate(QImage& image, double cell, QPointF origin, QRect region) {
    if (image.isNull() || !(cell >= 1) || !std::isfinite(cell)) return;
    ensurePremultiplied(image);
    region = region.isEmpty() ? image.rect() : region.intersected(image.rect());
    if (region.isEmpty()) return;
    const auto columns = cellSpans(origin.x(), cell, image.width());
    const auto rows = cellSpans(origin.y(), cell, image.height());
    for (auto [top, bottom] : rows) {
        if (bottom <= region.top() || top > region.bottom()) continue;
        for (auto [left, right] : columns) {
            if (right <= region.left() || left > region.right()) continue;
            fillCell(image, QRect(QPoint(left, top), QPoint(right - 1, bottom - 1)), region);
        }
    }
}

bool maskBlend(QImage& destination, const QImage& source, const QImage& mask) {
    if (destination.size() != source.size() || destination.size() != mask.size() || destination.isNull()) return false;
    ensurePremultiplied(destination);
    const QImage s = premultipliedView(source);
    const QImage m = greyView(mask);
    const int width = destination.width();
    for (int y = 0; y < destination.height(); ++y) {
        uchar* d = destination.scanLine(y);
        const uchar* src = s.constScanLine(y);
        const uchar* weights = m.constScanLine(y);
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 4; ++c) d[x * 4 + c] = blendByte(src[x * 4 + c], d[x * 4 + c], weights[x]);
    }
    return true;
}

void alphaFade(QImage& image, double alpha) {
    if (image.isNull()) return;
    ensurePremultiplied(image);
    const uint32_t a = static_cast<uint32_t>(std::lround(std::clamp(alpha, 0.0, 1.0) * 255));
    if (a == 255) return;
    const int n = image.width() * 4;
    for (int y = 0; y < image.height(); ++y) {
        uchar* row = image.scanLine(y);
        for (int i = 0; i < n; ++i) row[i] = static_cast<uchar>(div255(row[i] * a));
    }
}

bool dissolve(QImage& mean, const QImage& sample, double weight) {
    if (mean.size() != sample.size() || mean.isNull()) return false;
    ensurePremultiplied(mean);
    const QImage s = premultipliedView(sample);
    const uint32_t w = static_cast<uint32_t>(std::lround(std::clamp(weight, 0.0, 1.0) * 255));
    const int n = mean.width() * 4;
    for (int y = 0; y < mean.height(); ++y) {
        uchar* d = mean.scanLine(y);
        const uchar* src = s.constScanLine(y);
        for (int i = 0; i < n; ++i) d[i] = blendByte(src[i], d[i], w);
    }
    return true;
}

bool averageInto(QImage& out, const std::vector<QImage>& samples, const std::vector<QRect>& areas) {
    if (out.isNull() || samples.empty() || samples.size() > 257) return false;
    ensurePremultiplied(out);
    std::vector<QImage> views;
    for (const QImage& sample : samples) {
        if (sample.size() != out.size() || sample.constBits() == out.constBits()) return false;
        views.push_back(premultipliedView(sample));
    }
    // The span of each row that any area crosses.
    const int height = out.height();
    std::vector<int> from(size_t(height), out.width()), to(size_t(height), -1);
    for (const QRect& area : areas) {
        const QRect r = area.intersected(out.rect());
        for (int y = r.top(); y <= r.bottom(); ++y) {
            from[size_t(y)] = std::min(from[size_t(y)], r.left());
            to[size_t(y)] = std::max(to[size_t(y)], r.right());
        }
    }
    // sum / n as a multiply by a 16-bit reciprocal: vectorises, and rounds as sum / n does except
    // perhaps at an exact half.
    const uint32_t n = uint32_t(views.size());
    const uint32_t reciprocal = (65536 + n / 2) / n;
    std::vector<uint16_t> sums;
    for (int y = 0; y < height; ++y) {
        if (to[size_t(y)] < from[size_t(y)]) continue;
        const int begin = from[size_t(y)] * 4, count = (to[size_t(y)] - from[size_t(y)] + 1) * 4;
        sums.assign(size_t(count), 0);
        for (const QImage& view : views) addBytes(sums.data(), view.constScanLine(y) + begin, count);
        divideSums(out.scanLine(y) + begin, sums.data(), reciprocal, count);
    }
    return true;
}

QImage tintedShadow(const QImage& shapeAlpha, double sigma, const QColor& color) {
    QImage alpha = shapeAlpha.format() == QImage::Format_Alpha8 ? shapeAlpha
                                                                : shapeAlpha.convertToFormat(QImage::Format_Alpha8);
    gaussianBlur(alpha, sigma);
    QImage out(alpha.size(), QImage::Format_ARGB32_Premultiplied);
    if (out.isNull()) return out;
    // One tinted pixel per alpha level.
    const QColor rgb = color.toRgb();
    const uint32_t ca = static_cast<uint32_t>(rgb.alpha());
    const uint32_t premul[3] = {div255(rgb.blue() * ca), div255(rgb.green() * ca), div255(rgb.red() * ca)};
    uint32_t tint[256];
    for (uint32_t v = 0; v < 256; ++v)
        tint[v] = div255(premul[0] * v) | div255(premul[1] * v) << 8 | div255(premul[2] * v) << 16 | div255(ca * v) << 24;
    const int width = alpha.width();
    for (int y = 0; y < alpha.height(); ++y) {
        const uchar* a = alpha.constScanLine(y);
        auto* row = reinterpret_cast<uint32_t*>(out.scanLine(y));
        for (int x = 0; x < width; ++x) row[x] = tint[a[x]];
    }
    return out;
}

void drawPathShadow(QImage& target, const QPainterPath& path, const ShadowLook& style, const QTransform& transform) {
    if (target.isNull() || path.isEmpty() || style.color.alpha() == 0) return;
    const QPainterPath placed = transform.map(path);
    const QRect area = shadowMaskArea(target, placed.boundingRect(), style);
    if (area.isEmpty()) return;
    // Only coverage matters, so the shape is drawn into an alpha-only image.
    QImage mask(area.size(), QImage::Format_Alpha8);
    if (mask.isNull()) return;
    mask.fill(0);
    {
        QPainter painter(&mask);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(-area.topLeft());
        QPainterPath winding = placed;
        winding.setFillRule(Qt::WindingFill);
        painter.fillPath(winding, Qt::black);
    }
    paintShadowFromMask(target, std::move(mask), area.topLeft(), style);
}

void drawImageShadow(QImage& target, const QImage& shape, QPointF topLeft, const ShadowLook& style) {
    if (target.isNull() || shape.isNull() || style.color.alpha() == 0) return;
    const QRect area = shadowMaskArea(target, QRectF(topLeft, QSizeF(shape.size())), style);
    if (area.isEmpty()) return;
    QImage mask(area.size(), QImage::Format_ARGB32_Premultiplied);
    if (mask.isNull()) return;
    mask.fill(Qt::transparent);
    {
        QPainter painter(&mask);
        painter.drawImage(topLeft - QPointF(area.topLeft()), shape);
    }
    paintShadowFromMask(target, std::move(mask), area.topLeft(), style);
}

// Inside `area`: picture = picture × coverage + plate × (1 − coverage), with the coverage the alpha
// of `mask`, whose top-left corner lies at `maskOrigin`.
void blendTowardsPlate(QImage& picture, const QImage& plate, const QImage& mask, QRect area, QPoint maskOrigin) {
    area = area.intersected(picture.rect()).intersected(plate.rect()).intersected(QRect(maskOrigin, mask.size()));
    for (int y = area.top(); y <= area.bottom(); ++y) {
        auto* d = reinterpret_cast<uint32_t*>(picture.scanLine(y));
        const auto* p = reinterpret_cast<const uint32_t*>(plate.constScanLine(y));
        const auto* m = reinterpret_cast<const uint32_t*>(mask.constScanLine(y - maskOrigin.y())) - maskOrigin.x();
        for (int x = area.left(); x <= area.right(); ++x) {
            // Most of a band is wholly inside or wholly outside the rounded rectangle.
            const uint32_t coverage = m[x] >> 24;
            if (coverage == 255) continue;
            d[x] = coverage == 0 ? p[x] : mixPixels(p[x], d[x], coverage + (coverage >> 7));
        }
    }
}

}  // namespace halvane
