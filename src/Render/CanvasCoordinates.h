#pragma once

// Canvas geometry is kept with the origin at the bottom left (y grows upward); QImage and QPainter
// put it at the top left. Every crossing between the two goes through these helpers, given the
// height of the canvas (or document) the rectangle lives on.

#include "Support/Geometry.h"

#include <QPointF>
#include <QRect>
#include <QRectF>
#include <QTransform>

namespace halvane {

// value × 4 rounded half away from zero, times 0.25.
inline double roundToQuarterPixel(double v) { return roundHalfAway(v * 4) * 0.25; }
Rect roundToQuarterPixel(const Rect& r);

QPointF toTopLeft(Point p, double canvasHeight);
Point fromTopLeft(QPointF p, double canvasHeight);

// The rectangle is standardized first; a negative width or height never reaches QPainter.
QRectF toTopLeft(const Rect& r, double canvasHeight);
Rect fromTopLeft(const QRectF& r, double canvasHeight);

// Whole pixels: each edge rounded half away from zero, then flipped.
QRect toTopLeftPixels(const Rect& r, int canvasHeight);

// The transform that makes a painter on a top-left image take bottom-left canvas coordinates:
// set it on the painter and draw canvas geometry as it stands. Text and images drawn through it
// come out upside down, so those are placed with toTopLeft instead.
QTransform bottomLeftTransform(double canvasHeight);

}  // namespace halvane
