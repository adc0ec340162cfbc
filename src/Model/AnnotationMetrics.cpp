#include "Model/AnnotationMetrics.h"

namespace halvane {

double AnnotationMetrics::strokeBase(AnnotationSize size) {
    switch (size) {
        case AnnotationSize::small: return 2;
        case AnnotationSize::medium: return 4;
        case AnnotationSize::large: return 7;
    }
    return 4;
}

double AnnotationMetrics::fontBase(AnnotationSize size) {
    switch (size) {
        case AnnotationSize::small: return 14;
        case AnnotationSize::medium: return 20;
        case AnnotationSize::large: return 30;
    }
    return 20;
}

AnnotationMetrics::AnnotationMetrics(const AnnotationStyle& style, double s) : scale(s) {
    const double w = strokeBase(style.size);
    const double f = fontBase(style.size);
    strokeWidth = s * w;
    highlighterWidth = s * (3.5 * w + 6);
    fontSize = s * f;
    counterDiameter = s * 1.8 * f;
    blurRadius = s * (2.5 * w + 4);
    pixelCell = s * (2 * w + 4);
    headLength = s * (2.6 * w + 9);
    cornerRadius = s * (0.6 * w + 1.5);
    shadowBlur = s * 4;
    shadowOffset = s * 1.5;
}

}  // namespace halvane
