#pragma once

#include "Model/CanvasAnnotation.h"
#include "Render/AnnotationArt.h"

#include <filesystem>
#include <optional>

namespace halvane {

// Every canvas annotation that is not a text, drawn as the image editor draws its marks, onto a
// bitmap centred on the annotation's position: the composition scales, fades and moves it there
// without redrawing. The bitmap is upright: its top row is the top of the mark on the canvas.
struct CanvasAnnotationArt {
    // Marks are sized for a canvas of this many pixels on its shorter side.
    static constexpr double referenceShortSide = 720;

    // `canvasSize` in pixels; `scale` pixels of bitmap per canvas pixel, lowered to keep within
    // `maximumPixels`; `package` holds the pictures of `image` annotations. Texts go to
    // AnnotationArt. None when nothing can be drawn (a tiny canvas, a missing picture, a bitmap of
    // 8192 pixels or more on a side).
    static std::optional<AnnotationArt::Rendered> render(const CanvasAnnotation& annotation, Size canvasSize,
                                                         double scale, long long maximumPixels,
                                                         const std::filesystem::path& package);

    // Where a rendered bitmap goes: centred on the annotation's position, in canvas pixels with
    // the origin at the bottom left.
    static Rect canvasRect(const CanvasAnnotation& annotation, Size canvasSize, const AnnotationArt::Rendered& rendered);
};

}  // namespace halvane
