#pragma once

#include "Render/BackgroundLibrary.h"
#include "Support/Geometry.h"

#include <QImage>
#include <QPainter>

#include <optional>

namespace halvane {

// The soft "mesh" wallpapers: a vertical base gradient, coloured glows, a vignette and a fixed
// film grain, drawn from a WallpaperPreset at any size.
class MeshWallpaper {
public:
    // Draws into `rect` (the painter's own top-left coordinates), clipped to it. Nothing is drawn
    // unless both sides exceed 1.
    static void draw(const WallpaperPreset& preset, QPainter& painter, const QRectF& rect);
    // A fresh bitmap of the rounded size, at least 2 × 2; none if it can't be made.
    static std::optional<QImage> image(const WallpaperPreset& preset, Size size);

    // The 128 × 128 grey grain, the same on every run; made once.
    static const QImage& grainTile();
    static constexpr int grainSide = 128;
};

}  // namespace halvane
