#include "Render/ArrowGeometry.h"

#include "Render/CanvasCoordinates.h"

#include <QPainter>

#include <cmath>

namespace halvane {

namespace {

// Half the opening of a curved arrow's barbs, in radians (about 30.6°).
constexpr double barbSpread = 0.5340707511102649;

QPointF q(Point p) { return {p.x, p.y}; }
Point add(Point a, Point b, double k = 1) { return {a.x + k * b.x, a.y + k * b.y}; }

struct Frame {
    Point u;  // unit direction from start to end
    Point v;  // its left normal
    double length;
};

Frame frameOf(Point s, Point e) {
    const double dx = e.x - s.x, dy = e.y - s.y;
    const double length = std::hypot(dx, dy);
    const Point u{dx / length, dy / length};
    return {u, {-u.y, u.x}, length};
}

ArrowGeometry::Paths standardArrow(Point s, Point e, const Frame& f, double headLength) {
    const double h = std::min(0.55 * f.length, headLength);
    const double b = 0.95 * h / 2;
    const Point base = add(e, f.u, -h);
    const Point notch = add(e, f.u, -0.8 * h);
    QPainterPath shaft(q(s));
    shaft.lineTo(q(notch));
    QPainterPath head(q(e));
    head.lineTo(q(add(base, f.v, b)));
    head.lineTo(q(notch));
    head.lineTo(q(add(base, f.v, -b)));
    head.closeSubpath();
    return {head, shaft};
}

ArrowGeometry::Paths fancyArrow(Point s, Point e, const Frame& f, double strokeWidth, double headLength) {
    const double h = std::min(0.6 * f.length, 1.25 * headLength);
    const double tail = std::max(0.18 * strokeWidth, 0.4);
    const double neck = 0.7 * strokeWidth;
    const Point base = add(e, f.u, -h);
    const Point notch = add(e, f.u, -0.72 * h);
    const Point middle{(s.x + notch.x) / 2, (s.y + notch.y) / 2};
    const double wing = 0.62 * h;
    QPainterPath shape(q(add(s, f.v, tail)));
    shape.quadTo(q(add(middle, f.v, 0.2 * neck)), q(add(notch, f.v, neck)));
    shape.lineTo(q(add(base, f.v, wing)));
    shape.lineTo(q(e));
    shape.lineTo(q(add(base, f.v, -wing)));
    shape.lineTo(q(add(notch, f.v, -neck)));
    shape.quadTo(q(add(middle, f.v, -0.2 * neck)), q(add(s, f.v, -tail)));
    shape.closeSubpath();
    return {shape, std::nullopt};
}

// Two barbs at `tip`, opening backwards along the curve's direction as it arrives from `control`.
void addBarbs(QPainterPath& path, Point tip, Point control, double length) {
    const double dx = tip.x - control.x, dy = tip.y - control.y;
    const double norm = std::max(std::hypot(dx, dy), 0.001);
    const double a = std::atan2(dy / norm, dx / norm);
    for (double theta : {a + M_PI + barbSpread, a + M_PI - barbSpread}) {
        path.moveTo(q(tip));
        path.lineTo(tip.x + length * std::cos(theta), tip.y + length * std::sin(theta));
    }
}

ArrowGeometry::Paths curvedArrow(Point s, Point e, Point c, const Frame& f, double headLength, bool bothEnds) {
    const double h = std::min(0.45 * f.length, headLength);
    QPainterPath path(q(s));
    path.quadTo(q(c), q(e));
    addBarbs(path, e, c, h);
    if (bothEnds) addBarbs(path, s, c, h);
    return {std::nullopt, path};
}

}  // namespace

ArrowGeometry::Paths ArrowGeometry::paths(ArrowStyle style, Point start, Point end, Point control, double strokeWidth,
                                          double headLength) {
    const double length = std::hypot(end.x - start.x, end.y - start.y);
    if (length <= strokeWidth) {
        QPainterPath dot;
        dot.addEllipse(q(end), strokeWidth / 2, strokeWidth / 2);
        dot.setFillRule(Qt::WindingFill);
        return {dot, std::nullopt};
    }
    const Frame f = frameOf(start, end);
    Paths result;
    switch (style) {
        case ArrowStyle::standard: result = standardArrow(start, end, f, headLength); break;
        case ArrowStyle::fancy: result = fancyArrow(start, end, f, strokeWidth, headLength); break;
        case ArrowStyle::curved: result = curvedArrow(start, end, control, f, headLength, false); break;
        case ArrowStyle::doubleHeaded: result = curvedArrow(start, end, control, f, headLength, true); break;
    }
    if (result.fill) result.fill->setFillRule(Qt::WindingFill);
    return result;
}

QImage ArrowGeometry::glyph(ArrowStyle style, double pixelsPerPoint) {
    const int w = static_cast<int>(std::ceil(glyphWidth * pixelsPerPoint));
    const int h = static_cast<int>(std::ceil(glyphHeight * pixelsPerPoint));
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    const double y = isCurved(style) ? 5 : 10;
    const double stroke = style == ArrowStyle::fancy ? 4.2 : 2.1;
    const Paths p = paths(style, {37, y}, {3, y}, {20, 23}, stroke, 9.5);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(QTransform::fromScale(pixelsPerPoint, pixelsPerPoint) *
                         bottomLeftTransform(static_cast<double>(h)));
    if (p.stroke) painter.strokePath(*p.stroke, QPen(Qt::black, stroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    if (p.fill) painter.fillPath(*p.fill, Qt::black);
    return image;
}

}  // namespace halvane
