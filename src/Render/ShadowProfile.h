#pragma once

#include "Support/Geometry.h"

#include <QImage>
#include <QPainterPath>

#include <vector>

namespace halvane {

// The card's drop shadow: three stacked layers, a wide faint one and two tighter ones, whose sizes
// are fractions of the card's shorter side.
struct ShadowProfile {
    struct Layer {
        double offsetFraction = 0;
        double blurFraction = 0;
        double alpha = 0;
        friend bool operator==(const Layer&, const Layer&) = default;
    };
    std::vector<Layer> layers;

    // Strength is clamped to 0 ... 1; strength 0 still has three layers, all zero.
    explicit ShadowProfile(double strength);

    // For each layer in turn: its shadow (black at the layer's alpha, moved down by offset × unit,
    // blurred by blur × unit) and then the path itself in opaque black, which whatever is drawn
    // next covers. `path` is in the target's top-left pixels; unit is the card's shorter side.
    void draw(QImage& target, const QPainterPath& path, double unit) const;
    // The same, leaving out layers of alpha 0.001 or less and the black fill.
    void drawShadowsOnly(QImage& target, const QPainterPath& path, double unit) const;

    friend bool operator==(const ShadowProfile&, const ShadowProfile&) = default;
};

}  // namespace halvane
