#include "Support/Geometry.h"

namespace halvane {

Rect Rect::insetBy(double dx, double dy) const {
    Rect s = standardized();
    Rect r{s.origin.x + dx, s.origin.y + dy, s.size.width - 2 * dx, s.size.height - 2 * dy};
    if (r.size.width < 0 || r.size.height < 0) return {};
    return r;
}

Rect Rect::intersection(const Rect& other) const {
    double x0 = std::max(minX(), other.minX());
    double y0 = std::max(minY(), other.minY());
    double x1 = std::min(maxX(), other.maxX());
    double y1 = std::min(maxY(), other.maxY());
    if (x1 < x0 || y1 < y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
}

Rect Rect::united(const Rect& other) const {
    double x0 = std::min(minX(), other.minX());
    double y0 = std::min(minY(), other.minY());
    double x1 = std::max(maxX(), other.maxX());
    double y1 = std::max(maxY(), other.maxY());
    return {x0, y0, x1 - x0, y1 - y0};
}

bool Rect::intersects(const Rect& other) const {
    return minX() < other.maxX() && other.minX() < maxX() && minY() < other.maxY() && other.minY() < maxY();
}

Rect aspectFit(double aspect, const Rect& rect) {
    if (!(aspect > 0) || !(rect.size.width > 0) || !(rect.size.height > 0)) return rect;
    double w = rect.size.width;
    double h = rect.size.height;
    if (w / h > aspect) w = h * aspect;
    else h = w / aspect;
    auto quarter = [](double v) { return roundHalfAway(v * 4) * 0.25; };
    return {quarter(rect.midX() - w / 2), quarter(rect.midY() - h / 2), quarter(w), quarter(h)};
}

}  // namespace halvane
