#pragma once

// Where things stand on the canvas. Every rectangle here is in canvas pixels with the origin at the
// bottom left (CanvasCoordinates.h converts for painting); the export and the preview both take
// their geometry from these functions and nowhere else.

#include "Model/EditSettings.h"
#include "Model/EditTypes.h"
#include "Model/RecordingMeta.h"
#include "Support/Geometry.h"

#include <QPainterPath>

#include <optional>
#include <vector>

namespace halvane {

// The part of the source frame that is shown, in unit coordinates with the origin at the top left.
struct CropRegion {
    double x = 0;
    double y = 0;
    double width = 1;
    double height = 1;

    // No crop is the whole frame; sides are held to 0.1 ... 1 and the origin keeps them inside
    // (the rule lives with the settings, as `cropRect`).
    static CropRegion from(const EditSettings& settings);
    Rect rect() const { return {x, y, width, height}; }

    friend bool operator==(const CropRegion&, const CropRegion&) = default;
};

// Width over height of a fixed canvas aspect; none for the automatic one.
std::optional<double> aspectRatio(CanvasAspect aspect);

// The canvas an edit is exported (and previewed) at. `shortSide` ≤ 0 keeps the source's size, a
// fixed aspect then growing the canvas to hold the whole source. Both sides are even.
Size canvasSize(const RecordingMeta& meta, const EditSettings& settings, double shortSide);

// The card that carries the video, and the video inside it.
struct CardLayout {
    Rect content;
    Rect card;
    Rect video;
    double cardRadius = 0;
    double innerRadius = 0;
    friend bool operator==(const CardLayout&, const CardLayout&) = default;
};

class CanvasLayout {
public:
    // The padded area the video is fitted into; the whole canvas if padding leaves 8 pixels or less.
    static Rect contentRect(Size canvasSize, double videoAspect, double padding);
    // The shown part of the source as width over height (16:9 for a source without a height).
    static double videoAspect(const RecordingMeta& meta, const CropRegion& crop);
    // Card and video of a single-source take, with their corner radii.
    static CardLayout cardLayout(Size canvasSize, double videoAspect, double padding, double inset,
                                 double cornerRadiusFraction);
    static CardLayout cardLayout(Size canvasSize, const RecordingMeta& meta, const EditSettings& settings);

    // A square of `side`, but for the portrait frame a rectangle of the same area at its ratio.
    static Size webcamBubbleSize(WebcamFrame frame, double side);
    static double portraitRatio(WebcamPortraitRatio ratio);

    // The 256 corners of the superellipse |x|⁴ + |y|⁴ = 1 stretched over `rect`, starting at the
    // middle of its right side, counter-clockwise with y up.
    static std::vector<Point> squirclePoints(const Rect& rect);
    static constexpr int squirclePointCount = 256;
    // The same polygon, closed, for a painter on a top-left image of `canvasHeight`.
    static QPainterPath squirclePath(const Rect& rect, double canvasHeight);
};

}  // namespace halvane
