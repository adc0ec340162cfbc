#include "Model/AnnotationTypography.h"

#include <cmath>

namespace halvane {

namespace {
constexpr double unwrappedWidth = 100000;
}

AnnotationTypography::Insets AnnotationTypography::insets(const AnnotationStyle& style, double fontSize) {
    if (style.filled) return {fontSize * 0.45, fontSize * 0.22};
    return {fontSize * 0.12, fontSize * 0.08};
}

Rect AnnotationTypography::box(const ImageAnnotation& a, double scale, const TextMeasurer& measure) {
    const AnnotationMetrics m(a.style, scale);
    const Insets pad = insets(a.style, m.fontSize);
    // An empty text still measures one blank, so a new text can be seen and hit.
    const std::string words = a.text.empty() ? std::string(" ") : a.text;
    const double anchorWidth = a.rect.width();
    const double wrap = anchorWidth > 0 ? std::max(anchorWidth - 2 * pad.horizontal, m.fontSize) : unwrappedWidth;
    const Size measured = measure ? measure(words, m.fontSize, wrap) : estimatedTextSize(words, m.fontSize, wrap);
    const double width = anchorWidth > 0 ? anchorWidth : 2 * pad.horizontal + std::ceil(measured.width);
    const double height = 2 * pad.vertical + std::ceil(measured.height);
    return {a.rect.minX(), a.rect.maxY() - height, width, height};
}

Color AnnotationTypography::foregroundColor(const AnnotationStyle& style) {
    const Color base = Color::fromHex(style.colorHex);
    if (!style.filled) return base;
    return base.isLight() ? Color{0.08, 0.08, 0.08, 1} : Color{1, 1, 1, 1};
}

}  // namespace halvane
