#include "Capture/Screenshots/ScreenshotBoundarySnapIndex.h"

#include "Capture/Screenshots/ScreenshotBoundaryBuildCancellation.h"
#include "Capture/Screenshots/ScreenshotBoundaryLineTally.h"
#include "Support/ConcurrentPerform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace halvane {

namespace {

constexpr int largestSquaredDistance = 3 * 255 * 255;

bool cancelled(const ScreenshotBoundaryBuildCancellation* cancellation) {
    return cancellation && cancellation->isCancelled();
}

// Every squared distance from 256² on has a root past 255, so the edge byte is 255 there. Below
// that, the byte each entry of colorDistances() truncates and clamps to: a 64 KiB table that
// stays in cache while the 760 KiB one of floats would not.
constexpr int saturatedSquare = 256 * 256;

const std::uint8_t* edgeBytes() {
    static const std::vector<std::uint8_t> table = [] {
        const auto roots = colorDistances();
        std::vector<std::uint8_t> t(saturatedSquare);
        for (int i = 0; i < saturatedSquare; ++i) t[std::size_t(i)] = std::uint8_t(std::min(int(roots[std::size_t(i)]), 255));
        return t;
    }();
    return table.data();
}

std::uint8_t edgeByte(const std::uint8_t* a, const std::uint8_t* b, const std::uint8_t* bytes) {
    const int db = int(b[0]) - int(a[0]);
    const int dg = int(b[1]) - int(a[1]);
    const int dr = int(b[2]) - int(a[2]);
    const int square = dr * dr + dg * dg + db * db;
    return square < saturatedSquare ? bytes[square] : 255;
}

bool hasUsableBuffer(const Bitmap& image) {
    if (image.isNull() || image.bytesPerRow < image.width * 4) return false;
    const std::size_t needed = std::size_t(image.bytesPerRow) * std::size_t(image.height - 1) + std::size_t(image.width) * 4;
    return image.pixels->size() >= needed;
}

// Pixel index from a view coordinate, rounded half away from zero and clamped to 0 … limit.
int pixelIndex(double points, double scale, int limit) {
    const double v = roundHalfAway(points * scale);
    if (!(v > 0)) return 0;  // also catches NaN
    return v >= limit ? limit : static_cast<int>(v);
}

struct PixelRange {
    int first = 0;
    int last = 0;
};

// The pixels a span of view coordinates a … b covers, in either order, within 0 … limit − 1.
std::optional<PixelRange> spanPixels(double a, double b, double scale, int limit) {
    int first = pixelIndex(a, scale, limit);
    int last = pixelIndex(b, scale, limit);
    if (last < first) std::swap(first, last);
    last = std::min(last, limit - 1);
    if (last < first) return std::nullopt;
    return PixelRange{first, last};
}

// The lines within reach of `centre` that may hold an edge: never the outer lines 0 and limit,
// which the build leaves at zero. The reach is at least one pixel.
std::optional<PixelRange> candidateLines(int centre, double radius, double scale, int limit) {
    const double r = roundHalfAway(radius * scale);
    const int reach = !(r > 1) ? 1 : r >= 1e9 ? 1'000'000'000 : static_cast<int>(r);
    const int first = std::max(centre - reach, 1);
    const int last = std::min(centre + reach, limit - 1);
    if (last < first) return std::nullopt;
    return PixelRange{first, last};
}

using LineTally = ScreenshotBoundaryLineTally;

// The nearest edge to `centre` among the candidate lines, in pixels; the lower index wins a tie.
// `tally(from, count, out)` fills the tallies of lines from … from + count − 1 over n bytes each.
// Lines go in batches, so no lookup allocates however far its radius reaches.
template <typename TallyBatch>
std::optional<ScreenshotBoundarySnapIndex::Hit> nearestEdge(PixelRange lines, int centre, int n, TallyBatch tally) {
    const auto [first, last] = lines;
    constexpr int batch = 64;
    LineTally tallies[batch];
    std::optional<int> bestLine;
    float bestMean = 0;
    for (int from = first; from <= last; from += batch) {
        const int count = std::min(batch, last - from + 1);
        tally(from, count, tallies);
        for (int i = 0; i < count; ++i) {
            const auto mean = tallies[i].edgeMean(n);
            if (!mean) continue;
            const int line = from + i;
            if (!bestLine || std::abs(line - centre) < std::abs(*bestLine - centre)) {
                bestLine = line;
                bestMean = *mean;
            }
        }
    }
    if (!bestLine) return std::nullopt;
    return ScreenshotBoundarySnapIndex::Hit{double(*bestLine), bestMean};
}

}  // namespace

std::span<const float> colorDistances() {
    static const std::vector<float> table = [] {
        std::vector<float> t(largestSquaredDistance + 1);
        for (std::size_t i = 0; i < t.size(); ++i) t[i] = std::sqrt(static_cast<float>(i));
        return t;
    }();
    return table;
}

std::optional<ScreenshotBoundarySnapIndex> ScreenshotBoundarySnapIndex::build(
    const Bitmap& image, Size viewSize, const ScreenshotBoundaryBuildCancellation* cancellation) {
    const int width = image.width;
    const int height = image.height;
    if (width < 2 || height < 2 || viewSize.width < 2 || viewSize.height < 2) return std::nullopt;
    if (maximumPixels / height < width) return std::nullopt;
    if (!hasUsableBuffer(image) || cancelled(cancellation)) return std::nullopt;

    // The picture is already 4 bytes a pixel in a fixed order, so the planes read it in place
    // instead of drawing a converted copy first.
    const std::uint8_t* pixels = image.pixels->data();
    const std::size_t stride = static_cast<std::size_t>(image.bytesPerRow);

    auto vertical = ScreenshotBoundaryByteBuffer::create(std::ptrdiff_t(width + 1) * height);
    if (!vertical) return std::nullopt;
    const std::uint8_t* edgeTable = edgeBytes();

    // Column 0 and column width stay at the mapping's zero.
    std::uint8_t* verticalBytes = vertical->storage();
    concurrentPerform(static_cast<std::size_t>(height), [&](std::size_t y) {
        if (cancelled(cancellation)) return;
        const std::uint8_t* row = pixels + y * stride;
        std::uint8_t* out = verticalBytes + y * std::size_t(width + 1);
        for (int x = 1; x < width; ++x) out[x] = edgeByte(row + (x - 1) * 4, row + x * 4, edgeTable);
    });
    if (cancelled(cancellation)) return std::nullopt;

    auto horizontal = ScreenshotBoundaryByteBuffer::create(std::ptrdiff_t(width) * (height + 1));
    if (!horizontal) return std::nullopt;
    // Row 0 and row height stay at the mapping's zero.
    std::uint8_t* horizontalBytes = horizontal->storage();
    concurrentPerform(static_cast<std::size_t>(height - 1), [&](std::size_t y) {
        if (cancelled(cancellation)) return;
        const std::uint8_t* above = pixels + y * stride;
        const std::uint8_t* below = above + stride;
        std::uint8_t* out = horizontalBytes + (y + 1) * std::size_t(width);
        for (int x = 0; x < width; ++x) out[x] = edgeByte(above + x * 4, below + x * 4, edgeTable);
    });
    if (cancelled(cancellation)) return std::nullopt;

    ScreenshotBoundarySnapIndex index;
    index.width_ = width;
    index.height_ = height;
    index.viewSize_ = viewSize;
    index.verticalEdges_ = std::move(vertical);
    index.horizontalEdges_ = std::move(horizontal);
    return index;
}

std::span<const std::uint8_t> ScreenshotBoundarySnapIndex::verticalEdges() const {
    return {verticalEdges_->storage(), verticalEdges_->count()};
}

std::span<const std::uint8_t> ScreenshotBoundarySnapIndex::horizontalEdges() const {
    return {horizontalEdges_->storage(), horizontalEdges_->count()};
}

std::optional<ScreenshotBoundarySnapIndex::Hit> ScreenshotBoundarySnapIndex::nearestVertical(
    double x, double yMin, double yMax, double radius) const {
    const double sx = width_ / viewSize_.width;
    const double sy = height_ / viewSize_.height;
    const int centre = pixelIndex(x, sx, width_);
    const auto rows = spanPixels(viewSize_.height - yMax, viewSize_.height - yMin, sy, height_);
    const auto columns = candidateLines(centre, radius, sx, width_);
    if (!rows || !columns) return std::nullopt;

    const std::size_t stride = std::size_t(width_) + 1;
    const auto edge = nearestEdge(*columns, centre, rows->last - rows->first + 1, [&](int from, int count, LineTally* out) {
        LineTally::tallyColumns(verticalEdges_->storage(), verticalEdges_->count(), stride, from, count, rows->first,
                                rows->last, out);
    });
    if (!edge) return std::nullopt;
    return Hit{edge->position / sx, edge->strength};
}

std::optional<ScreenshotBoundarySnapIndex::Hit> ScreenshotBoundarySnapIndex::nearestHorizontal(
    double y, double xMin, double xMax, double radius) const {
    const double sx = width_ / viewSize_.width;
    const double sy = height_ / viewSize_.height;
    const int centre = pixelIndex(viewSize_.height - y, sy, height_);
    const auto columns = spanPixels(xMin, xMax, sx, width_);
    const auto rows = candidateLines(centre, radius, sy, height_);
    if (!columns || !rows) return std::nullopt;

    const std::uint8_t* plane = horizontalEdges_->storage();
    const int n = columns->last - columns->first + 1;
    const auto edge = nearestEdge(*rows, centre, n, [&](int from, int count, LineTally* out) {
        for (int i = 0; i < count; ++i)
            out[i] = LineTally::tallyRun(plane + std::size_t(from + i) * std::size_t(width_) + columns->first, n);
    });
    if (!edge) return std::nullopt;
    return Hit{viewSize_.height - edge->position / sy, edge->strength};
}

}  // namespace halvane
