#pragma once

#include <algorithm>
#include <cmath>

namespace halvane {

struct Point {
    double x = 0;
    double y = 0;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    double width = 0;
    double height = 0;
    friend bool operator==(const Size&, const Size&) = default;
};

// A rectangle may hold a negative width or height (while it is dragged, say);
// every reader that needs edges standardizes first, as the min/max accessors do.
struct Rect {
    Point origin;
    Size size;

    Rect() = default;
    Rect(Point o, Size s) : origin(o), size(s) {}
    Rect(double x, double y, double w, double h) : origin{x, y}, size{w, h} {}

    double x() const { return origin.x; }
    double y() const { return origin.y; }
    double width() const { return size.width; }
    double height() const { return size.height; }
    double minX() const { return std::min(origin.x, origin.x + size.width); }
    double maxX() const { return std::max(origin.x, origin.x + size.width); }
    double minY() const { return std::min(origin.y, origin.y + size.height); }
    double maxY() const { return std::max(origin.y, origin.y + size.height); }
    double midX() const { return origin.x + size.width / 2; }
    double midY() const { return origin.y + size.height / 2; }
    Point center() const { return {midX(), midY()}; }
    bool isEmpty() const { return size.width == 0 || size.height == 0; }

    Rect standardized() const { return {minX(), minY(), maxX() - minX(), maxY() - minY()}; }
    Rect insetBy(double dx, double dy) const;
    Rect offsetBy(double dx, double dy) const { return {origin.x + dx, origin.y + dy, size.width, size.height}; }
    // Empty (all zero) when the two do not overlap.
    Rect intersection(const Rect& other) const;
    Rect united(const Rect& other) const;
    bool contains(Point p) const { return p.x >= minX() && p.x <= maxX() && p.y >= minY() && p.y <= maxY(); }
    bool intersects(const Rect& other) const;

    friend bool operator==(const Rect&, const Rect&) = default;
};

inline double clamp01(double v) { return std::clamp(v, 0.0, 1.0); }
inline double distance(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }
// Rounding half away from zero, the rule every pixel snap in the program uses.
inline double roundHalfAway(double v) { return std::round(v); }

// The largest rectangle of the width-to-height ratio `aspect` centred in `rect`, each of its values
// snapped to a quarter pixel; `rect` itself when the aspect or its size is not positive.
Rect aspectFit(double aspect, const Rect& rect);

}  // namespace halvane
