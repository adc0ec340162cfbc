#pragma once

#include "Model/CanvasAnnotation.h"
#include "Support/Geometry.h"

#include <QImage>

#include <optional>

namespace halvane {

// Text annotations and captions as bitmaps made once and then moved, scaled and faded.
struct AnnotationArt {
    // A bitmap with the size at which it is shown, in canvas points.
    struct Rendered {
        QImage image;
        Size size;
    };

    // Bitmaps of 8192 pixels or more on a side are never made.
    static constexpr int maximumSide = 8192;

    // White semibold text, on a dark pill or with a soft shadow. None when the text would be under
    // 4 pixels; a bitmap over `maximumPixels` is redrawn at a lower scale, keeping its point size.
    static std::optional<Rendered> render(const CanvasAnnotation& annotation, double minCanvasDim, double scale,
                                          long long maximumPixels);
};

}  // namespace halvane
