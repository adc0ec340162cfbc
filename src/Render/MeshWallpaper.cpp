#include "Render/MeshWallpaper.h"

#include "Render/QtColor.h"

#include <QLinearGradient>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <cstdint>

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

void drawGrain(QPainter& painter, const QRectF& rect) {
    QBrush grain(MeshWallpaper::grainTile());
    // Tiles start at the rectangle's bottom-left corner, as they would with y pointing up.
    grain.setTransform(QTransform::fromTranslate(rect.left(), rect.bottom()));
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    painter.setCompositionMode(QPainter::CompositionMode_Overlay);
    painter.setOpacity(0.055);
    painter.fillRect(rect, grain);
    painter.setCompositionMode(QPainter::CompositionMode_Plus);
    painter.setOpacity(0.016);
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
    painter.save();
    painter.setClipRect(rect, Qt::IntersectClip);
    drawBase(preset, painter, rect);
    for (const auto& glow : preset.glows) drawGlow(glow, painter, rect);
    if (preset.vignette > 0.001) drawVignette(preset.vignette, painter, rect);
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
