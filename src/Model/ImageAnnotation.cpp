#include "Model/ImageAnnotation.h"

#include "Model/AnnotationMetrics.h"
#include "Model/AnnotationTypography.h"

#include <cmath>
#include <numbers>

namespace halvane {

namespace {

using Kind = ImageAnnotationKind;

constexpr int curveSamples = 16;
constexpr double curveBend = 0.22;

Rect boundingBox(const std::vector<Point>& points) {
    if (points.empty()) return {};
    double minX = points[0].x, maxX = minX, minY = points[0].y, maxY = minY;
    for (const Point& p : points) {
        minX = std::min(minX, p.x);
        maxX = std::max(maxX, p.x);
        minY = std::min(minY, p.y);
        maxY = std::max(maxY, p.y);
    }
    return {minX, minY, maxX - minX, maxY - minY};
}

Point turn(Point p, Point centre, double radians) {
    const double dx = p.x - centre.x, dy = p.y - centre.y;
    const double c = std::cos(radians), s = std::sin(radians);
    return {centre.x + c * dx - s * dy, centre.y + s * dx + c * dy};
}

double radiansOf(double degrees) { return degrees * -std::numbers::pi / 180; }

Point quadratic(Point s, Point c, Point e, double t) {
    const double u = 1 - t;
    return {u * u * s.x + 2 * u * t * c.x + t * t * e.x, u * u * s.y + 2 * u * t * c.y + t * t * e.y};
}

// Near any segment of a polyline, or its only point.
bool nearPolyline(const std::vector<Point>& points, Point p, double reach) {
    if (points.size() == 1) return halvane::distance(p, points[0]) <= reach;
    for (size_t i = 1; i < points.size(); ++i)
        if (ImageAnnotation::distance(p, points[i - 1], points[i]) <= reach) return true;
    return false;
}

bool hitsRectangle(const Rect& r, Point p, double tolerance, double halfStroke, bool filled) {
    if (filled) return r.insetBy(-tolerance, -tolerance).contains(p);
    const double band = tolerance + halfStroke;
    const Rect outer = r.insetBy(-band, -band);
    const Rect inner = r.insetBy(band, band);
    const bool insideInner = inner.width() > 0 && inner.height() > 0 && inner.contains(p);
    return outer.contains(p) && !insideInner;
}

bool hitsEllipse(const Rect& r, Point p, double tolerance, double halfStroke, bool filled) {
    const double a = r.width() / 2, b = r.height() / 2;
    if (a <= 0 || b <= 0) return false;
    const double q = std::hypot((p.x - r.midX()) / a, (p.y - r.midY()) / b);
    const double n = std::min(a, b);
    if (filled) return q <= tolerance / n + 1;
    return std::fabs(q - 1) <= (tolerance + halfStroke) / n;
}

}  // namespace

bool operator==(const ImageAnnotation& a, const ImageAnnotation& b) {
    const bool sameAsset = (!a.asset && !b.asset) || (a.asset && b.asset && a.asset->id() == b.asset->id());
    return sameAsset && a.id == b.id && a.kind == b.kind && a.rect == b.rect && a.points == b.points && a.text == b.text &&
           a.number == b.number && a.style == b.style && a.rotation == b.rotation;
}

Point ImageAnnotation::startPoint() const { return points.empty() ? Point{} : points[0]; }
Point ImageAnnotation::endPoint() const { return points.size() >= 2 ? points[1] : startPoint(); }

Rect ImageAnnotation::bounds(double scale, const TextMeasurer& measure) const {
    switch (kind) {
        case Kind::rectangle:
        case Kind::ellipse:
        case Kind::counter:
        case Kind::redact:
        case Kind::spotlight: return rect.standardized();
        case Kind::arrow: return boundingBox(arrowSpine());
        case Kind::line:
        case Kind::pen:
        case Kind::highlighter: return boundingBox(points);
        case Kind::text: return AnnotationTypography::box(*this, scale, measure);
        case Kind::image:
            if (rotation == 0) return rect.standardized();
            return boundingBox(rotatedCorners(rect.standardized()));
    }
    return {};
}

bool ImageAnnotation::hitTest(Point p, double scale, double tolerance, const TextMeasurer& measure) const {
    const AnnotationMetrics m(style, scale);
    const double halfStroke = m.strokeWidth / 2;
    const Rect r = rect.standardized();
    switch (kind) {
        case Kind::arrow: {
            if (nearPolyline(arrowSpine(), p, tolerance + halfStroke)) return true;
            const double headReach = tolerance + 0.7 * m.headLength;
            if (halvane::distance(p, endPoint()) <= headReach) return true;
            return style.arrow == ArrowStyle::doubleHeaded && halvane::distance(p, startPoint()) <= headReach;
        }
        case Kind::line: return distance(p, startPoint(), endPoint()) <= tolerance + halfStroke;
        case Kind::rectangle: return hitsRectangle(r, p, tolerance, halfStroke, style.filled);
        case Kind::ellipse: return hitsEllipse(r, p, tolerance, halfStroke, style.filled);
        case Kind::pen: return nearPolyline(points, p, tolerance + halfStroke);
        case Kind::highlighter: return nearPolyline(points, p, tolerance + m.highlighterWidth / 2);
        case Kind::text:
        case Kind::counter:
        case Kind::redact:
        case Kind::spotlight: return bounds(scale, measure).insetBy(-tolerance, -tolerance).contains(p);
        case Kind::image: return r.insetBy(-tolerance, -tolerance).contains(unrotated(p));
    }
    return false;
}

void ImageAnnotation::translate(Point offset) {
    rect = rect.offsetBy(offset.x, offset.y);
    for (Point& p : points) p = {p.x + offset.x, p.y + offset.y};
}

void ImageAnnotation::fit(const Rect& target, double scale, const TextMeasurer& measure) {
    const Rect t = target.standardized();
    switch (kind) {
        case Kind::rectangle:
        case Kind::ellipse:
        case Kind::redact:
        case Kind::spotlight:
        case Kind::image: rect = t; return;
        case Kind::arrow:
        case Kind::line:
        case Kind::pen:
        case Kind::highlighter: {
            const Rect b = bounds(scale, measure);
            const double sx = b.width() == 0 ? 1 : t.width() / b.width();
            const double sy = b.height() == 0 ? 1 : t.height() / b.height();
            for (Point& p : points) p = {t.minX() + sx * (p.x - b.minX()), t.minY() + sy * (p.y - b.minY())};
            return;
        }
        case Kind::text:
        case Kind::counter: {
            const Rect b = bounds(scale, measure);
            translate({t.minX() - b.minX(), t.minY() - b.minY()});
            return;
        }
    }
}

Point ImageAnnotation::rotated(Point p) const {
    if (rotation == 0) return p;
    return turn(p, rect.standardized().center(), radiansOf(rotation));
}

Point ImageAnnotation::unrotated(Point p) const {
    if (rotation == 0) return p;
    return turn(p, rect.standardized().center(), -radiansOf(rotation));
}

std::vector<Point> ImageAnnotation::rotatedCorners(const Rect& r) const {
    const Rect s = r.standardized();
    return {rotated({s.minX(), s.maxY()}), rotated({s.maxX(), s.maxY()}), rotated({s.maxX(), s.minY()}),
            rotated({s.minX(), s.minY()})};
}

void ImageAnnotation::setEnd(Point p) {
    if (points.empty()) points = {p, p};
    else if (points.size() == 1) points.push_back(p);
    else points[1] = p;
}

void ImageAnnotation::setControl(std::optional<Point> p) {
    if (!p) {
        if (points.size() > 2) points.resize(2);
        return;
    }
    if (points.empty()) points = {Point{}, Point{}};
    else if (points.size() == 1) points.push_back(points[0]);
    if (points.size() >= 3) points[2] = *p;
    else points.push_back(*p);
}

std::optional<Point> ImageAnnotation::control() const {
    if (points.size() >= 3) return points[2];
    return std::nullopt;
}

Point ImageAnnotation::curveControl() const {
    if (points.size() >= 3) return points[2];
    const Point s = startPoint(), e = endPoint();
    const double dx = e.x - s.x, dy = e.y - s.y;
    // Bent to the left of the direction of travel, by a share of the length.
    return {(s.x + e.x) / 2 - curveBend * dy, (s.y + e.y) / 2 + curveBend * dx};
}

Point ImageAnnotation::curveMidpoint() const {
    const Point s = startPoint(), c = curveControl(), e = endPoint();
    return {0.25 * s.x + 0.5 * c.x + 0.25 * e.x, 0.25 * s.y + 0.5 * c.y + 0.25 * e.y};
}

void ImageAnnotation::setCurveMidpoint(Point m) {
    const Point s = startPoint(), e = endPoint();
    setControl(Point{2 * m.x - (s.x + e.x) / 2, 2 * m.y - (s.y + e.y) / 2});
}

std::vector<Point> ImageAnnotation::arrowSpine() const {
    const Point s = startPoint(), e = endPoint();
    if (kind != Kind::arrow || !isCurved(style.arrow)) return {s, e};
    const Point c = curveControl();
    std::vector<Point> spine;
    spine.reserve(curveSamples + 1);
    for (int i = 0; i <= curveSamples; ++i) spine.push_back(quadratic(s, c, e, static_cast<double>(i) / curveSamples));
    return spine;
}

double ImageAnnotation::snappedRotation(double degrees, std::optional<double> step) {
    double v = std::fmod(degrees, 360.0);
    if (v > 180) v -= 360;
    if (v <= -180) v += 360;
    if (step && *step > 0) {
        v = std::round(v / *step) * *step;
    } else {
        const double right = std::round(v / 90) * 90;
        const double diagonal = std::round(v / 45) * 45;
        if (std::fabs(v - right) <= 4) v = right;
        else if (std::fabs(v - diagonal) <= 3) v = diagonal;
    }
    return v == -180 ? 180 : v;
}

double ImageAnnotation::distance(Point p, Point a, Point b) {
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double lengthSquared = dx * dx + dy * dy;
    if (lengthSquared == 0) return halvane::distance(p, a);
    const double t = std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / lengthSquared, 0.0, 1.0);
    return halvane::distance(p, {a.x + t * dx, a.y + t * dy});
}

}  // namespace halvane
