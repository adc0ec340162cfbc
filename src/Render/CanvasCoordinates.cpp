#include "Render/CanvasCoordinates.h"

namespace halvane {

Rect roundToQuarterPixel(const Rect& r) {
    return {roundToQuarterPixel(r.x()), roundToQuarterPixel(r.y()), roundToQuarterPixel(r.width()),
            roundToQuarterPixel(r.height())};
}

QPointF toTopLeft(Point p, double canvasHeight) { return {p.x, canvasHeight - p.y}; }

Point fromTopLeft(QPointF p, double canvasHeight) { return {p.x(), canvasHeight - p.y()}; }

QRectF toTopLeft(const Rect& r, double canvasHeight) {
    const Rect s = r.standardized();
    return {s.minX(), canvasHeight - s.maxY(), s.width(), s.height()};
}

Rect fromTopLeft(const QRectF& r, double canvasHeight) {
    const QRectF n = r.normalized();
    return {n.left(), canvasHeight - n.bottom(), n.width(), n.height()};
}

QRect toTopLeftPixels(const Rect& r, int canvasHeight) {
    const Rect s = r.standardized();
    const int left = static_cast<int>(roundHalfAway(s.minX()));
    const int right = static_cast<int>(roundHalfAway(s.maxX()));
    const int bottom = static_cast<int>(roundHalfAway(s.minY()));
    const int top = static_cast<int>(roundHalfAway(s.maxY()));
    return {left, canvasHeight - top, right - left, top - bottom};
}

QTransform bottomLeftTransform(double canvasHeight) { return QTransform(1, 0, 0, -1, 0, canvasHeight); }

}  // namespace halvane
