#include "Capture/Screenshots/ScreenshotBoundarySnapIndex.h"

#include "Capture/Screenshots/ScreenshotBoundaryBuildCancellation.h"
#include "Support/ConcurrentPerform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace halvane {

namespace {

constexpr int largestSquaredDistance = 3 * 255 * 255;

// What makes a scanned line an edge: mostly strong, or faint but almost unbroken.
constexpr std::uint8_t hardByte = 28;
constexpr std::uint8_t softByte = 12;
constexpr float hardShare = 0.55f;
constexpr float softShare = 0.85f;

bool cancelled(const ScreenshotBoundaryBuildCancellation* cancellation) {
    return cancellation && cancellation->isCancelled();
}

std::uint8_t edgeByte(const std::uint8_t* a, const std::uint8_t* b, const float* distances) {
    const int db = int(b[0]) - int(a[0]);
    const int dg = int(b[1]) - int(a[1]);
    const int dr = int(b[2]) - int(a[2]);
    const int value = static_cast<int>(distances[dr * dr + dg * dg + db * db]);
    return static_cast<std::uint8_t>(std::min(value, 255));
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

int reachInPixels(double radius, double scale) {
    const double v = roundHalfAway(radius * scale);
    if (!(v > 1)) return 1;
    return v >= 1e9 ? 1'000'000'000 : static_cast<int>(v);
}

// Running tallies of one candidate line over its span.
struct LineTally {
    std::uint32_t sum = 0;
    std::uint32_t soft = 0;
    std::uint32_t hard = 0;

    void add(std::uint8_t v) {
        sum += v;
        soft += v >= softByte;
        hard += v >= hardByte;
    }
    // The mean, when the line counts as an edge over a span of n bytes.
    std::optional<float> edgeMean(int n) const {
        const float count = static_cast<float>(n);
        const float mean = static_cast<float>(sum) / count;
        const bool strong = mean >= hardByte && static_cast<float>(hard) / count >= hardShare;
        const bool faint = mean >= softByte && static_cast<float>(soft) / count >= softShare;
        return strong || faint ? std::optional(mean) : std::nullopt;
    }
};

struct NearestLine {
    int line = 0;
    float mean = 0;
};

// Of the tallied lines first … last, the edge nearest to centre; the lower index wins a tie.
std::optional<NearestLine> nearestEdge(const std::vector<LineTally>& tallies, int first, int centre, int n) {
    std::optional<NearestLine> best;
    int bestDistance = 0;
    for (std::size_t i = 0; i < tallies.size(); ++i) {
        const auto mean = tallies[i].edgeMean(n);
        if (!mean) continue;
        const int line = first + static_cast<int>(i);
        const int distance = std::abs(line - centre);
        if (!best || distance < bestDistance) {
            best = NearestLine{line, *mean};
            bestDistance = distance;
        }
    }
    return best;
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
    const float* distances = colorDistances().data();

    // Column 0 and column width stay at the mapping's zero.
    std::uint8_t* verticalBytes = vertical->storage();
    concurrentPerform(static_cast<std::size_t>(height), [&](std::size_t y) {
        if (cancelled(cancellation)) return;
        const std::uint8_t* row = pixels + y * stride;
        std::uint8_t* out = verticalBytes + y * std::size_t(width + 1);
        for (int x = 1; x < width; ++x) out[x] = edgeByte(row + (x - 1) * 4, row + x * 4, distances);
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
        for (int x = 0; x < width; ++x) out[x] = edgeByte(above + x * 4, below + x * 4, distances);
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
    int top = pixelIndex(viewSize_.height - std::max(yMin, yMax), sy, height_);
    int bottom = pixelIndex(viewSize_.height - std::min(yMin, yMax), sy, height_);
    if (bottom < top) std::swap(top, bottom);
    bottom = std::min(bottom, height_ - 1);
    if (bottom < top) return std::nullopt;

    const int reach = reachInPixels(radius, sx);
    const int first = std::max(centre - reach, 1);
    const int last = std::min(centre + reach, width_ - 1);
    if (last < first) return std::nullopt;

    // Rows outermost: each row's candidate columns sit side by side in one cache line.
    std::vector<LineTally> tallies(static_cast<std::size_t>(last - first + 1));
    const std::size_t stride = std::size_t(width_) + 1;
    const std::uint8_t* plane = verticalEdges_->storage();
    for (int y = top; y <= bottom; ++y) {
        const std::uint8_t* row = plane + std::size_t(y) * stride + std::size_t(first);
        for (std::size_t i = 0; i < tallies.size(); ++i) tallies[i].add(row[i]);
    }
    const auto edge = nearestEdge(tallies, first, centre, bottom - top + 1);
    if (!edge) return std::nullopt;
    return Hit{edge->line / sx, edge->mean};
}

std::optional<ScreenshotBoundarySnapIndex::Hit> ScreenshotBoundarySnapIndex::nearestHorizontal(
    double y, double xMin, double xMax, double radius) const {
    const double sx = width_ / viewSize_.width;
    const double sy = height_ / viewSize_.height;
    const int centre = pixelIndex(viewSize_.height - y, sy, height_);
    int left = pixelIndex(xMin, sx, width_);
    int right = pixelIndex(xMax, sx, width_);
    if (right < left) std::swap(left, right);
    right = std::min(right, width_ - 1);
    if (right < left) return std::nullopt;

    const int reach = reachInPixels(radius, sy);
    const int first = std::max(centre - reach, 1);
    const int last = std::min(centre + reach, height_ - 1);
    if (last < first) return std::nullopt;

    std::vector<LineTally> tallies(static_cast<std::size_t>(last - first + 1));
    const std::uint8_t* plane = horizontalEdges_->storage();
    for (std::size_t i = 0; i < tallies.size(); ++i) {
        const std::uint8_t* row = plane + std::size_t(first + int(i)) * std::size_t(width_);
        LineTally& tally = tallies[i];
        for (int x = left; x <= right; ++x) tally.add(row[x]);
    }
    const auto edge = nearestEdge(tallies, first, centre, right - left + 1);
    if (!edge) return std::nullopt;
    return Hit{viewSize_.height - edge->line / sy, edge->mean};
}

}  // namespace halvane
