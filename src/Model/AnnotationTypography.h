#pragma once

#include "Model/AnnotationMetrics.h"
#include "Model/ImageAnnotation.h"
#include "Support/Color.h"

namespace halvane {

// How a `text` annotation is laid out: a box that hangs down from its anchor, holding the words
// set in the system font (semibold) at the style's font size.
struct AnnotationTypography {
    struct Insets {
        double horizontal = 0;
        double vertical = 0;
    };

    // Space between the box and its words; a filled text stands on a roomier pill.
    static Insets insets(const AnnotationStyle& style, double fontSize);
    // Left edge at the anchor's minX, top edge at its maxY; the anchor's width when above 0.
    static Rect box(const ImageAnnotation& text, double scale, const TextMeasurer& measure = {});

    // The words' colour: the style's, except on a filled pill where it must read on that colour.
    static Color foregroundColor(const AnnotationStyle& style);
    // Only words without a pill cast a shadow of their own.
    static bool wordsCastShadow(const AnnotationStyle& style) { return !style.filled && style.shadow; }
};

}  // namespace halvane
