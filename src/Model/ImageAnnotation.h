#pragma once

#include "Model/AnnotationStyle.h"
#include "Model/ImageAsset.h"
#include "Model/ImageTool.h"
#include "Model/TextMeasurer.h"
#include "Support/Geometry.h"
#include "Support/Json.h"
#include "Support/Uuid.h"

#include <optional>
#include <string>
#include <vector>

namespace halvane {

// One mark of an annotated picture; the picture itself is the first mark of kind `image`.
// Geometry is in document pixels with the origin at the bottom left. `rect` may be
// unstandardized while it is dragged; every reader standardizes it.
struct ImageAnnotation {
    using Kind = ImageAnnotationKind;

    Uuid id = Uuid::random();
    Kind kind = Kind::rectangle;
    // Box of shapes, counters, redactions, spotlights and pictures; for text the anchor: left
    // edge, top edge (maxY) and, when wider than 0, the wrap width.
    Rect rect;
    // Segments: start, end and for a curved arrow the control point. Strokes: their samples.
    std::vector<Point> points;
    std::string text;
    int number = 1;
    AnnotationStyle style;
    ImageAssetPointer asset;  // pictures only; shared by copies
    double rotation = 0;      // pictures only; degrees, positive turns clockwise on screen

    friend bool operator==(const ImageAnnotation& a, const ImageAnnotation& b);

    // ---- geometry; all pure

    // Without stroke widths. Text is measured with `measure`, or estimated without one.
    Rect bounds(double scale, const TextMeasurer& measure = {}) const;
    bool hitTest(Point p, double scale, double tolerance, const TextMeasurer& measure = {}) const;
    void translate(Point offset);
    // Resizing a selection: boxes take the target, segments and strokes stretch into it, text and
    // counters only move to its corner.
    void fit(const Rect& target, double scale, const TextMeasurer& measure = {});

    // Turning about the centre of the standardized `rect`: `rotated` as the picture is shown,
    // `unrotated` back. Unchanged points when `rotation` is 0.
    Point rotated(Point p) const;
    Point unrotated(Point p) const;
    // Corners of r, from top left clockwise, turned about the centre of this annotation's `rect`.
    std::vector<Point> rotatedCorners(const Rect& r) const;

    // ---- segments and curves

    void setEnd(Point p);
    // Writing nothing removes every point from the third on.
    void setControl(std::optional<Point> p);
    std::optional<Point> control() const;
    // The stored control point, or one bent 0.22 of the length to the left of the middle.
    Point curveControl() const;
    Point curveMidpoint() const;
    void setCurveMidpoint(Point m);
    // The drawn centre line: 17 samples of a curved arrow, else the first two points.
    std::vector<Point> arrowSpine() const;

    // Rotation brought into (−180, 180], then onto multiples of `step`, or without a step onto
    // nearby right angles (4°) and diagonals (3°).
    static double snappedRotation(double degrees, std::optional<double> step = std::nullopt);
    // Distance to the segment from a to b, the foot clamped to it.
    static double distance(Point p, Point a, Point b);

private:
    Point startPoint() const;
    Point endPoint() const;
};

// ---- JSON, keys in the order id, kind, rect, points, text, number, style, image, rotation.

OrderedJson toOrderedJson(const ImageAnnotation& a);
OrderedJson toOrderedJson(const std::vector<ImageAnnotation>& list);

// `id` and `kind` are strict, every other key lenient. A picture's `image` id must be found in
// `assets`; otherwise the annotation fails with "missing image <id>". Throws JsonDecodeError.
ImageAnnotation decodeImageAnnotation(const Json& j, const ImageAssetLookup* assets = nullptr);
// Reads an array one element at a time: an element that fails is skipped, the others keep their
// order. Throws JsonDecodeError only when `j` is not an array.
std::vector<ImageAnnotation> decodeImageAnnotationList(const Json& j, const ImageAssetLookup* assets = nullptr);

}  // namespace halvane
