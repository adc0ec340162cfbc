#pragma once

#include "Model/AnnotationStyle.h"

namespace halvane {

// The lengths of one style at one mark scale. Lengths are never stored with a mark: they follow
// from its size and the document's factor, so marks keep their apparent size on huge pictures.
struct AnnotationMetrics {
    double strokeWidth = 0;
    double highlighterWidth = 0;
    double fontSize = 0;
    double counterDiameter = 0;
    double blurRadius = 0;   // Gaussian sigma of a blur redaction
    double pixelCell = 0;    // cell side of a pixelate redaction
    double headLength = 0;
    double cornerRadius = 0;
    double shadowBlur = 0;
    double shadowOffset = 0; // downward
    double scale = 1;

    AnnotationMetrics() = default;
    AnnotationMetrics(const AnnotationStyle& style, double scale);

    // Stroke and font bases of a size at scale 1.
    static double strokeBase(AnnotationSize size);
    static double fontBase(AnnotationSize size);

    friend bool operator==(const AnnotationMetrics&, const AnnotationMetrics&) = default;
};

}  // namespace halvane
