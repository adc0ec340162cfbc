#pragma once

#include "Capture/Screenshots/ScreenshotBoundarySnapIndex.h"
#include "Support/Geometry.h"

#include <optional>

namespace halvane {

struct ScreenshotBoundarySnapResult {
    Rect rect;
    std::optional<double> verticalGuide;    // x of the edge the rectangle stuck to, view points
    std::optional<double> horizontalGuide;  // y of the edge the rectangle stuck to, view points
    friend bool operator==(const ScreenshotBoundarySnapResult&, const ScreenshotBoundarySnapResult&) = default;
};

struct ScreenshotBoundarySnapping {
    // How far, in view points, an edge reaches out to catch a selection edge.
    static constexpr double radius = 4;

    // Moves (never resizes) rect so that its nearest edges stick to the picture's edges, staying
    // inside bounds. View points, y up.
    static ScreenshotBoundarySnapResult movedRectangle(const Rect& rect, const Rect& bounds,
                                                       const ScreenshotBoundarySnapIndex& index);
};

}  // namespace halvane
