#pragma once

#include "Model/AnnotationStyle.h"
#include "Support/Geometry.h"

#include <QImage>
#include <QPainterPath>

#include <optional>

namespace halvane {

// The outlines of an arrow in document coordinates (y upward): what is filled and what is
// stroked. A short arrow is only a dot at its end, whatever its style.
struct ArrowGeometry {
    struct Paths {
        std::optional<QPainterPath> fill;    // winding rule
        std::optional<QPainterPath> stroke;  // round caps and joins
    };

    static Paths paths(ArrowStyle style, Point start, Point end, Point control, double strokeWidth, double headLength);

    // The style picker's sample, black on clear, at `pixelsPerPoint` pixels a point.
    static QImage glyph(ArrowStyle style, double pixelsPerPoint = 2);
    static constexpr double glyphWidth = 40;
    static constexpr double glyphHeight = 28;
};

}  // namespace halvane
