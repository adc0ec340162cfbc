#pragma once

#include "Model/EditTypes.h"
#include "Support/Color.h"
#include "Support/Geometry.h"

#include <QImage>

#include <optional>
#include <vector>

class QPainter;

namespace halvane {
class LiquidGlass;
}

namespace halvane {

// The band around the card: geometry and the plain stroked drawing of the glass styles.
// Geometry is in canvas points with y upward.
struct CardBorder {
    struct Stroke {
        Rect rect;  // centre line of the stroke
        double radius = 0;
        double width = 0;
        Color color;
        std::optional<Color> endColor;  // with it, the stroke is a linear ramp
        Point rampStart{0.5, 1};        // fractions of the band's outer rectangle
        Point rampEnd{0.5, 0};
        friend bool operator==(const Stroke&, const Stroke&) = default;
    };

    struct Band {
        CardBorderStyle style = CardBorderStyle::glass;
        double width = 0;
        std::vector<Stroke> strokes;  // empty for liquid
        Rect outerRect;
        double outerRadius = 0;
        Rect cardRect;
        double radius = 0;
        friend bool operator==(const Band&, const Band&) = default;
    };

    // From the `borderWidth` setting (0 to 1): the band never leaves the canvas.
    static std::optional<Band> band(CardBorderStyle style, double strength, const Rect& cardRect, double radius,
                                    Size canvasSize);
    // With a width in points, for thumbnails.
    static std::optional<Band> bandWithWidth(CardBorderStyle style, double width, const Rect& cardRect, double radius);

    // Strokes in order; the painter's user space is canvas points with y upward.
    static void draw(const Band& band, QPainter& painter);

    // The band alone on a transparent image covering outerRect grown by one point, at `scale`
    // pixels a point. Liquid bands refract `background`, which covers `backgroundRect`, through
    // `liquid` (whose source cache then serves later calls); a null image when nothing can be drawn.
    static QImage rasterizedImage(const Band& band, const QImage& background, const Rect& backgroundRect, double scale,
                                  LiquidGlass* liquid = nullptr);

    // The style picker's sample: a card on striped colour with the band around it.
    static QImage thumbnail(CardBorderStyle style, double size, double scale);

    // The rectangle a rasterized band image covers, in canvas points.
    static Rect rasterTarget(const Band& band) { return band.outerRect.insetBy(-1, -1); }
};

}  // namespace halvane
