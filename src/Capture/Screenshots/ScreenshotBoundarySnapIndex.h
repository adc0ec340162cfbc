#pragma once

#include "Capture/Screenshots/ScreenshotBoundaryByteBuffer.h"
#include "Support/Bitmap.h"
#include "Support/Geometry.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace halvane {

class ScreenshotBoundaryBuildCancellation;

// Edges of a frozen screen picture, ready for the selection to stick to them while it is dragged.
// Building does all the per-pixel work once: two byte planes of colour distance between
// neighbouring pixels. A lookup then only sums a few columns (or rows) of one plane, so it can
// answer every pointer move. Copies share the planes; a finished index is never written again.
class ScreenshotBoundarySnapIndex {
public:
    struct Hit {
        double position = 0;  // view points, on the axis of the query
        float strength = 0;   // mean edge byte over the scanned span
        friend bool operator==(const Hit&, const Hit&) = default;
    };

    // Pictures beyond this many pixels get no index: the selection then simply doesn't snap.
    static constexpr std::int64_t maximumPixels = 40'000'000;

    // Nothing for a picture under 2 × 2 pixels, a view under 2 × 2 points, more than maximumPixels,
    // a buffer too small for its stated size, a failed mapping, or a cancellation seen at any step.
    // The picture's bytes run B, G, R, A (or X); alpha is ignored.
    static std::optional<ScreenshotBoundarySnapIndex> build(
        const Bitmap& image, Size viewSize, const ScreenshotBoundaryBuildCancellation* cancellation = nullptr);

    // The vertical edge nearest to x within radius, measured over the view's y range yMin … yMax.
    // All in view points with y growing upwards from the view's bottom edge.
    std::optional<Hit> nearestVertical(double x, double yMin, double yMax, double radius) const;
    // The horizontal edge nearest to y within radius, measured over xMin … xMax.
    std::optional<Hit> nearestHorizontal(double y, double xMin, double xMax, double radius) const;

    int width() const { return width_; }
    int height() const { return height_; }
    Size viewSize() const { return viewSize_; }
    // (width + 1) × height bytes, stride width + 1: byte (x, y) is the distance of pixel x − 1 to x.
    std::span<const std::uint8_t> verticalEdges() const;
    // width × (height + 1) bytes, stride width: byte (x, y) is the distance of row y − 1 to row y.
    std::span<const std::uint8_t> horizontalEdges() const;

private:
    ScreenshotBoundarySnapIndex() = default;

    int width_ = 0;
    int height_ = 0;
    Size viewSize_;
    std::shared_ptr<const ScreenshotBoundaryByteBuffer> verticalEdges_;
    std::shared_ptr<const ScreenshotBoundaryByteBuffer> horizontalEdges_;
};

// sqrt(i) for every i up to 3 × 255², the largest squared RGB distance; built on first use.
std::span<const float> colorDistances();

}  // namespace halvane
