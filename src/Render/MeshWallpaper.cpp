#include "Render/MeshWallpaper.h"

#include "Render/QtColor.h"

#include <QLinearGradient>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace halvane {
namespace {

void drawBase(const WallpaperPreset& preset, QPainter& painter, const QRectF& rect) {
    QLinearGradient base(rect.center().x(), rect.top(), rect.center().x(), rect.bottom());
    base.setColorAt(0, hexColor(preset.baseTop));
    base.setColorAt(1, hexColor(preset.baseBottom));
    painter.fillRect(rect, base);
}

void drawGlow(const WallpaperPreset::Glow& glow, QPainter& painter, const QRectF& rect) {
    const QPointF centre(rect.left() + glow.x * rect.width(), rect.top() + glow.y * rect.height());
    const double radius = std::max(rect.width(), rect.height()) * glow.radius;
    if (!(radius > 0)) return;
    QRadialGradient gradient(centre, radius);
    gradient.setColorAt(0, hexColor(glow.hex, glow.alpha));
    gradient.setColorAt(0.42, hexColor(glow.hex, glow.alpha * 0.55));
    gradient.setColorAt(1, hexColor(glow.hex, 0));
    // Past the radius the last stop is clear, so padding adds nothing: only the disc is painted.
    painter.fillRect(QRectF(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius).intersected(rect), gradient);
}

void drawVignette(double vignette, QPainter& painter, const QRectF& rect) {
    QRadialGradient gradient(rect.center(), std::hypot(rect.width(), rect.height()) * 0.5 * 1.05);
    gradient.setColorAt(0, QColor(0, 0, 0, 0));
    gradient.setColorAt(0.55, QColor(0, 0, 0, 0));
    gradient.setColorAt(1, QColor::fromRgbF(0, 0, 0, float(vignette)));
    painter.fillRect(rect, gradient);
}

constexpr double grainOverlayAlpha = 0.055;
constexpr double grainPlusAlpha = 0.016;

// The grain's two blends over an opaque backdrop d with grain g, folded into one table:
// overlay at 0.055, d + 0.055 × (B(d, g) − d) with B the overlay of g on d, then plus at 0.016.
const std::vector<uchar>& grainTable() {
    static const std::vector<uchar> table = [] {
        std::vector<uchar> t(256 * 256);
        for (int g = 0; g < 256; ++g)
            for (int d = 0; d < 256; ++d) {
                const double cb = d / 255.0, cs = g / 255.0;
                const double overlay = cb <= 0.5 ? 2 * cb * cs : 1 - 2 * (1 - cb) * (1 - cs);
                const double blended = cb + grainOverlayAlpha * (overlay - cb) + grainPlusAlpha * cs;
                t[g * 256 + d] = static_cast<uchar>(std::lround(std::clamp(blended, 0.0, 1.0) * 255));
            }
        return t;
    }();
    return table;
}

// The same blends straight on the pixels, when the painter draws untransformed (but for a shift)
// and unclipped into a premultiplied image: the general composition modes are many times slower.
bool blendGrainDirectly(QPainter& painter, const QRectF& rect) {
    auto* image = dynamic_cast<QImage*>(painter.device());
    const QTransform& t = painter.deviceTransform();
    if (!image || image->format() != QImage::Format_ARGB32_Premultiplied || painter.hasClipping() ||
        t.type() > QTransform::TxTranslate)
        return false;
    const QRect area = t.mapRect(rect).toAlignedRect().intersected(image->rect());
    if (area != t.mapRect(rect).toRect()) return false;  // only whole pixels are the same either way
    const QImage& tile = MeshWallpaper::grainTile();
    const std::vector<uchar>& table = grainTable();
    const int side = MeshWallpaper::grainSide;
    const int bottom = area.top() + area.height();
    for (int y = area.top(); y < bottom; ++y) {
        const auto* grain = reinterpret_cast<const uint32_t*>(tile.constScanLine(((y - bottom) % side + side) % side));
        auto* row = reinterpret_cast<uint32_t*>(image->scanLine(y)) + area.left();
        for (int x = 0; x < area.width(); ++x) {
            const uchar* lut = &table[(grain[x % side] & 0xFF) * 256];
            const uint32_t p = row[x];
            row[x] = (p & 0xFF000000u) | uint32_t(lut[(p >> 16) & 0xFF]) << 16 | uint32_t(lut[(p >> 8) & 0xFF]) << 8 |
                     lut[p & 0xFF];
        }
    }
    return true;
}

void drawGrain(QPainter& painter, const QRectF& rect) {
    if (blendGrainDirectly(painter, rect)) return;
    QBrush grain(MeshWallpaper::grainTile());
    // Tiles start at the rectangle's bottom-left corner, as they would with y pointing up.
    grain.setTransform(QTransform::fromTranslate(rect.left(), rect.bottom()));
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    painter.setCompositionMode(QPainter::CompositionMode_Overlay);
    painter.setOpacity(grainOverlayAlpha);
    painter.fillRect(rect, grain);
    painter.setCompositionMode(QPainter::CompositionMode_Plus);
    painter.setOpacity(grainPlusAlpha);
    painter.fillRect(rect, grain);
}

}  // namespace

const QImage& MeshWallpaper::grainTile() {
    static const QImage tile = [] {
        QImage grey(grainSide, grainSide, QImage::Format_Grayscale8);
        uint64_t state = 0x9E3779B97F4A7C15ull;
        for (int y = 0; y < grainSide; ++y) {
            uchar* row = grey.scanLine(y);
            for (int x = 0; x < grainSide; ++x) {
                state = state * 0x5851F42D4C957F2Dull + 0x14057B7EF767814Full;
                row[x] = static_cast<uchar>((state >> 33) & 0xFF);
            }
        }
        // Kept opaque in the painting format so that blending never converts it again.
        return grey.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    }();
    return tile;
}

void MeshWallpaper::draw(const WallpaperPreset& preset, QPainter& painter, const QRectF& rect) {
    if (!(rect.width() > 1) || !(rect.height() > 1)) return;
    const bool callerClips = painter.hasClipping();
    painter.save();
    if (callerClips) painter.setClipRect(rect, Qt::IntersectClip);
    else painter.setClipRect(rect);
    drawBase(preset, painter, rect);
    for (const auto& glow : preset.glows) drawGlow(glow, painter, rect);
    if (preset.vignette > 0.001) drawVignette(preset.vignette, painter, rect);
    // The clip to `rect` matters only when it cuts into the device; whole-pixel rectangles inside
    // it are drawn exactly without one.
    if (!callerClips) painter.setClipping(false);
    drawGrain(painter, rect);
    painter.restore();
}

std::optional<QImage> MeshWallpaper::image(const WallpaperPreset& preset, Size size) {
    if (!std::isfinite(size.width) || !std::isfinite(size.height)) return std::nullopt;
    const int w = std::max(static_cast<int>(roundHalfAway(size.width)), 2);
    const int h = std::max(static_cast<int>(roundHalfAway(size.height)), 2);
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return std::nullopt;
    image.fill(Qt::transparent);
    QPainter painter(&image);
    draw(preset, painter, QRectF(0, 0, w, h));
    painter.end();
    return image;
}

}  // namespace halvane
