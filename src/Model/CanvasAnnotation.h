#pragma once

#include "Model/AnnotationStyle.h"
#include "Support/Json.h"
#include "Support/Uuid.h"

#include <filesystem>
#include <optional>
#include <string>

namespace halvane {

struct ImageAnnotation;

enum class CanvasAnnotationKind { text, arrow, line, rectangle, ellipse, counter, image };
constexpr auto enumNames(CanvasAnnotationKind) {
    return std::array<std::string_view, 7>{"text", "arrow", "line", "rectangle", "ellipse", "counter", "image"};
}
// Segments have a direction: their span may be negative.
inline bool isSegment(CanvasAnnotationKind k) { return k == CanvasAnnotationKind::arrow || k == CanvasAnnotationKind::line; }

// A mark on the output canvas for a span of source time.
struct CanvasAnnotation {
    Uuid id = Uuid::random();
    double start = 0;
    double end = 0;
    std::string text;
    Point position{0.5, 0.14};  // centre, unit canvas coordinates, y from the bottom
    double size = 0.045;
    bool pill = true;
    CanvasAnnotationKind kind = CanvasAnnotationKind::text;
    Size span{0.25, 0.18};  // fractions of canvas width and height; signed for segments
    AnnotationStyle style;
    int number = 1;
    std::optional<std::string> imageFileName;
    double imageAspect = 1.0;

    // For lists and menus.
    std::string title() const;
    // Opacity at a source time: a short fade at each end; never visible when 0.01 s or shorter.
    double alpha(double t) const;
    // The mark's rectangle on a canvas of `size` pixels, origin top left.
    Rect rect(Size size) const;
    // The image mark that draws this annotation on a canvas of `size` pixels.
    ImageAnnotation mark(Size size) const;
    // The picture inside the package, only for a plain "overlay-….png" name.
    std::optional<std::filesystem::path> imageURL(const std::filesystem::path& package) const;

    friend bool operator==(const CanvasAnnotation&, const CanvasAnnotation&) = default;
};

// `id`, `start`, `end` required; other keys default when missing; a wrong type fails the element.
void fromJson(const Json& j, CanvasAnnotation& out);
Json toJson(const CanvasAnnotation& v);

}  // namespace halvane
