#include "Capture/Screenshots/ScreenshotBoundaryBuildCancellation.h"
#include "Capture/Screenshots/ScreenshotBoundarySnapIndex.h"
#include "Capture/Screenshots/ScreenshotBoundarySnapping.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace halvane {
namespace {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
};

// A picture painted with filled rectangles, rows from the top, in the B, G, R, A layout.
class Canvas {
public:
    Canvas(int width, int height, Rgb fill) : width_(width), height_(height), pixels_(std::size_t(width) * height * 4) {
        paint(0, 0, width, height, fill);
    }
    // Paints the part of the rectangle that lies on the canvas.
    Canvas& paint(int x, int y, int w, int h, Rgb c) {
        for (int row = std::max(y, 0); row < std::min(y + h, height_); ++row)
            for (int col = std::max(x, 0); col < std::min(x + w, width_); ++col) {
                std::uint8_t* p = pixels_.data() + (std::size_t(row) * width_ + col) * 4;
                p[0] = c.b, p[1] = c.g, p[2] = c.r, p[3] = 255;
            }
        return *this;
    }
    Bitmap bitmap() const {
        return {width_, height_, width_ * 4, std::make_shared<const std::vector<std::uint8_t>>(pixels_)};
    }
    ScreenshotBoundarySnapIndex index(Size view) const {
        auto built = ScreenshotBoundarySnapIndex::build(bitmap(), view);
        EXPECT_TRUE(built.has_value());
        return *built;
    }
    ScreenshotBoundarySnapIndex index() const { return index(Size{double(width_), double(height_)}); }

private:
    int width_, height_;
    std::vector<std::uint8_t> pixels_;
};

const Rgb desktop{40, 60, 90};

// Where a lookup found its edge; NaN, which equals nothing, when it found none.
double positionOf(const std::optional<ScreenshotBoundarySnapIndex::Hit>& hit) {
    return hit ? hit->position : std::nan("");
}
const Rgb window{235, 235, 235};

// A desktop with one window: x 50 ..< 150, rows 30 ..< 90 from the top of a 200 × 120 picture.
Canvas desktopWithWindow() {
    Canvas canvas(200, 120, desktop);
    canvas.paint(50, 30, 100, 60, window);
    return canvas;
}

TEST(ScreenshotBoundarySnapIndex, PlanesHoldTheColourDistanceOfNeighbours) {
    Canvas canvas(4, 3, {10, 10, 10});
    canvas.paint(2, 0, 2, 3, {13, 14, 10});  // distance sqrt(9 + 16) = 5 between columns 1 and 2
    canvas.paint(0, 2, 4, 1, {255, 0, 255});
    const auto index = canvas.index();
    const auto v = index.verticalEdges();
    ASSERT_EQ(v.size(), 5u * 3u);
    EXPECT_EQ(v[0 * 5 + 2], 5);
    EXPECT_EQ(v[0 * 5 + 1], 0);
    EXPECT_EQ(v[0 * 5 + 0], 0);  // column 0 and column width are never written
    EXPECT_EQ(v[0 * 5 + 4], 0);
    const auto h = index.horizontalEdges();
    ASSERT_EQ(h.size(), 4u * 4u);
    // Row 1 → row 2: from grey (10,10,10) to magenta; distance sqrt(245² + 10² + 245²) ≈ 346.6, capped.
    EXPECT_EQ(h[2 * 4 + 0], 255);
    EXPECT_EQ(h[1 * 4 + 0], 0);
    for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(h[0 * 4 + x], 0);  // row 0 and row height are never written
        EXPECT_EQ(h[3 * 4 + x], 0);
    }
    const auto table = colorDistances();
    ASSERT_EQ(table.size(), 195'076u);
    EXPECT_FLOAT_EQ(table[195'075], std::sqrt(195'075.0f));
}

TEST(ScreenshotBoundarySnapIndex, FindsTheEdgesOfAWindow) {
    const auto index = desktopWithWindow().index();
    // View y grows upwards: the window covers view y 30 … 90.
    auto left = index.nearestVertical(52, 35, 85, 4);
    ASSERT_TRUE(left);
    EXPECT_DOUBLE_EQ(left->position, 50);
    EXPECT_GT(left->strength, 200);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestVertical(147, 35, 85, 4)), 150);
    // The window's top edge lies between rows 29 and 30, view y 120 − 30 = 90.
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(88, 60, 140, 4)), 90);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(33, 60, 140, 4)), 30);

    EXPECT_FALSE(index.nearestVertical(20, 35, 85, 4)) << "nothing within reach on the plain desktop";
    EXPECT_FALSE(index.nearestVertical(55, 35, 85, 4)) << "the edge is 5 points away";
    // Measured over rows where the window isn't, its edge doesn't count.
    EXPECT_FALSE(index.nearestVertical(50, 95, 115, 4));
}

TEST(ScreenshotBoundarySnapIndex, WorksInViewPointsOnADenserPicture) {
    Canvas canvas(400, 240, desktop);  // a 2× picture shown in a 200 × 120 point view
    canvas.paint(100, 60, 200, 120, window);
    const auto index = canvas.index(Size{200, 120});
    auto left = index.nearestVertical(53, 35, 85, 4);  // reach is 8 pixels = 4 points
    ASSERT_TRUE(left);
    EXPECT_DOUBLE_EQ(left->position, 50);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(87, 60, 140, 4)), 90);
}

TEST(ScreenshotBoundarySnapIndex, SwappedSpanBoundsGiveTheSameHit) {
    const auto index = desktopWithWindow().index();
    EXPECT_EQ(index.nearestVertical(52, 85, 35, 4), index.nearestVertical(52, 35, 85, 4));
    EXPECT_EQ(index.nearestHorizontal(88, 140, 60, 4), index.nearestHorizontal(88, 60, 140, 4));
}

TEST(ScreenshotBoundarySnapIndex, EquallyNearEdgesFavourLeftAndUpper) {
    Canvas canvas(100, 100, desktop);
    canvas.paint(48, 0, 4, 100, window);  // vertical edges at x 48 and 52
    canvas.paint(0, 48, 100, 4, window);  // horizontal edges at rows 48 and 52
    const auto index = canvas.index();
    auto vertical = index.nearestVertical(50, 0, 30, 4);
    ASSERT_TRUE(vertical);
    EXPECT_DOUBLE_EQ(vertical->position, 48);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(50, 0, 30, 4)), 100 - 48) << "row 48 lies above row 52";
}

// A vertical line at x 20 of a 40 × 100 picture, with a red step of `step` over the first
// `rows` rows and no edge below them.
std::optional<ScreenshotBoundarySnapIndex::Hit> partialLine(std::uint8_t step, int rows) {
    Canvas canvas(40, 100, {100, 100, 100});
    canvas.paint(20, 0, 20, rows, {std::uint8_t(100 + step), 100, 100});
    return canvas.index().nearestVertical(20, 0, 100, 4);
}

TEST(ScreenshotBoundarySnapIndex, FaintAndStrongLinesMeetTheirThresholds) {
    auto faint = partialLine(14, 90);  // mean 12.6, 90% at 12 or more
    ASSERT_TRUE(faint);
    EXPECT_FLOAT_EQ(faint->strength, 12.6f);
    EXPECT_FALSE(partialLine(13, 90)) << "mean 11.7 is too faint";
    EXPECT_FALSE(partialLine(14, 84)) << "soft share 0.84 is too broken";
    auto strong = partialLine(60, 60);  // mean 36, 60% at 28 or more
    ASSERT_TRUE(strong);
    EXPECT_FLOAT_EQ(strong->strength, 36);
    EXPECT_TRUE(partialLine(60, 55)) << "hard share 0.55 is enough";
    EXPECT_FALSE(partialLine(60, 50)) << "mean 30 but only half the span";
}

TEST(ScreenshotBoundarySnapIndex, NeverReportsTheOuterColumnsOrRows) {
    Canvas canvas(50, 50, desktop);
    canvas.paint(0, 0, 1, 50, window).paint(49, 0, 1, 50, window);  // edges at x 1 and 49
    canvas.paint(0, 0, 50, 1, window).paint(0, 49, 50, 1, window);  // edges at rows 1 and 49
    const auto index = canvas.index();
    EXPECT_DOUBLE_EQ(positionOf(index.nearestVertical(0, 10, 40, 4)), 1);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestVertical(50, 10, 40, 4)), 49);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(50, 10, 40, 4)), 49);
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(0, 10, 40, 4)), 1);
}

TEST(ScreenshotBoundarySnapIndex, QueriesFarOutsideThePictureStayInsideThePlanes) {
    Canvas canvas(64, 63, desktop);  // a vertical plane of exactly 65 × 63 bytes
    canvas.paint(63, 0, 1, 63, window).paint(0, 62, 64, 1, window);
    const auto index = canvas.index();
    EXPECT_FALSE(index.nearestVertical(-1e9, -1e9, 1e9, 4));
    EXPECT_DOUBLE_EQ(positionOf(index.nearestVertical(1e9, -1e9, 1e9, 1e9)), 63);
    EXPECT_FALSE(index.nearestVertical(30, 1e6, 2e6, 4)) << "a span above the view is clamped to the top row, which has no edge";
    EXPECT_FALSE(index.nearestVertical(std::nan(""), 0, 63, 4));
    EXPECT_DOUBLE_EQ(positionOf(index.nearestHorizontal(-1e9, -1e9, 1e9, 1e9)), 1);
    EXPECT_FALSE(index.nearestHorizontal(30, 1e6, 2e6, 4)) << "a span right of the view has no columns";
}

TEST(ScreenshotBoundarySnapIndex, RefusesPicturesItCannotIndex) {
    const Bitmap thin = Canvas(1, 50, desktop).bitmap();
    EXPECT_FALSE(ScreenshotBoundarySnapIndex::build(thin, Size{50, 50}));
    const Bitmap small = Canvas(10, 10, desktop).bitmap();
    EXPECT_FALSE(ScreenshotBoundarySnapIndex::build(small, Size{1.5, 10}));
    EXPECT_TRUE(ScreenshotBoundarySnapIndex::build(small, Size{2, 2}));

    // Stated sizes beyond 40 megapixels are turned away before a byte is read.
    Bitmap huge = small;
    huge.width = 20'000'001;
    huge.height = 2;
    huge.bytesPerRow = huge.width * 4;
    EXPECT_FALSE(ScreenshotBoundarySnapIndex::build(huge, Size{100, 100}));
    Bitmap lying = small;
    lying.height = 11;  // a buffer one row short of its stated size
    EXPECT_FALSE(ScreenshotBoundarySnapIndex::build(lying, Size{10, 11}));
}

TEST(ScreenshotBoundarySnapIndex, ACancelledBuildYieldsNothing) {
    ScreenshotBoundaryBuildCancellation cancellation;
    const Bitmap picture = desktopWithWindow().bitmap();
    EXPECT_TRUE(ScreenshotBoundarySnapIndex::build(picture, Size{200, 120}, &cancellation));
    cancellation.cancel();
    EXPECT_FALSE(ScreenshotBoundarySnapIndex::build(picture, Size{200, 120}, &cancellation));
}

TEST(ScreenshotBoundarySnapping, MovesTheRectangleToTheNearestEdgeWithoutResizing) {
    const auto index = desktopWithWindow().index();
    const Rect bounds{0, 0, 200, 120};
    // Left edge 2 points right of the window's, top edge 3 below the window's top (view y 90).
    const Rect selection{52, 40, 60, 47};
    const auto snapped = ScreenshotBoundarySnapping::movedRectangle(selection, bounds, index);
    EXPECT_EQ(snapped.rect, (Rect{50, 43, 60, 47}));
    EXPECT_EQ(snapped.verticalGuide, 50);
    EXPECT_EQ(snapped.horizontalGuide, 90);

    const Rect faraway{10, 100, 20, 10};
    const auto untouched = ScreenshotBoundarySnapping::movedRectangle(faraway, bounds, index);
    EXPECT_EQ(untouched.rect, faraway);
    EXPECT_FALSE(untouched.verticalGuide);
    EXPECT_FALSE(untouched.horizontalGuide);
}

TEST(ScreenshotBoundarySnapping, SkipsAnEdgeThatWouldLeaveTheBounds) {
    const auto index = desktopWithWindow().index();
    // The left edge is 1 point from x 50, the right edge 2 points from x 150. With bounds ending
    // at 148 both snaps would push the right side out, so nothing moves; with room to 149 only
    // the left snap fits.
    const Rect selection{49, 40, 99, 40};
    auto tight = ScreenshotBoundarySnapping::movedRectangle(selection, Rect{0, 0, 148, 120}, index);
    EXPECT_EQ(tight.rect.origin.x, 49);
    EXPECT_FALSE(tight.verticalGuide);
    auto roomy = ScreenshotBoundarySnapping::movedRectangle(selection, Rect{0, 0, 149, 120}, index);
    EXPECT_EQ(roomy.rect.origin.x, 50);
    EXPECT_EQ(roomy.verticalGuide, 50);

    // Bounds starting at x 51 forbid the left snap (−2) but not the farther right one (+3).
    const Rect shifted{52, 40, 95, 40};
    auto right = ScreenshotBoundarySnapping::movedRectangle(shifted, Rect{51, 0, 149, 120}, index);
    EXPECT_EQ(right.rect.origin.x, 55);
    EXPECT_EQ(right.verticalGuide, 150);
}

}  // namespace
}  // namespace halvane

namespace halvane {
namespace {

// The lookup as plainly as it can be said, reading the planes byte by byte.
std::optional<ScreenshotBoundarySnapIndex::Hit> plainNearest(std::span<const std::uint8_t> plane, std::size_t stride,
                                                             bool columns, int first, int last, int centre, int lo,
                                                             int hi) {
    std::optional<ScreenshotBoundarySnapIndex::Hit> best;
    for (int line = first; line <= last; ++line) {
        double sum = 0, soft = 0, hard = 0;
        for (int k = lo; k <= hi; ++k) {
            const std::uint8_t v = columns ? plane[std::size_t(k) * stride + line] : plane[std::size_t(line) * stride + k];
            sum += v, soft += v >= 12, hard += v >= 28;
        }
        const double n = hi - lo + 1;
        const bool edge = (sum / n >= 28 && hard / n >= 0.55) || (sum / n >= 12 && soft / n >= 0.85);
        if (edge && (!best || std::abs(line - centre) < std::abs(best->position - centre)))
            best = ScreenshotBoundarySnapIndex::Hit{double(line), float(sum / n)};
    }
    return best;
}

TEST(ScreenshotBoundarySnapIndex, LookupsAgreeWithAPlainScanOfThePlanes) {
    // Busy stripes and blocks over 700 rows and 333 columns, so spans cross every internal
    // boundary: 16-lane groups, 255-row counter limits and the last bytes of each plane.
    const int width = 333, height = 700;
    Canvas canvas(width, height, desktop);
    std::uint32_t seed = 1;
    auto next = [&] { return seed = seed * 1664525u + 1013904223u, seed >> 8; };
    for (int i = 0; i < 400; ++i) {
        const std::uint8_t v = std::uint8_t(next() % 256);
        canvas.paint(int(next() % width), int(next() % height), 1 + int(next() % 40), 1 + int(next() % 300),
                     {v, std::uint8_t(v / 2 + 20), std::uint8_t(255 - v)});
    }
    const auto index = canvas.index();
    for (int q = 0; q < 400; ++q) {
        const double x = double(next() % (width + 1)), y = double(next() % (height + 1));
        const double span = double(next() % height), radius = 1 + double(next() % 40);
        const double y0 = std::max(0.0, y - span), x0 = std::max(0.0, x - span);

        const int top = height - int(y), bottom = std::min(height - int(y0), height - 1);
        const int reachX = int(radius);
        const auto vertical = index.nearestVertical(x, y0, y, radius);
        const auto plainV = top <= bottom ? plainNearest(index.verticalEdges(), width + 1, true,
                                                         std::max(int(x) - reachX, 1), std::min(int(x) + reachX, width - 1),
                                                         int(x), top, bottom)
                                          : std::nullopt;
        ASSERT_EQ(vertical.has_value(), plainV.has_value()) << "query " << q;
        if (vertical) {
            EXPECT_DOUBLE_EQ(vertical->position, plainV->position);
            EXPECT_FLOAT_EQ(vertical->strength, plainV->strength);
        }

        const int centre = height - int(y);
        const int right = std::min(int(x), width - 1);
        const auto horizontal = index.nearestHorizontal(y, x0, x, radius);
        const auto plainH = int(x0) <= right ? plainNearest(index.horizontalEdges(), width, false,
                                                            std::max(centre - reachX, 1), std::min(centre + reachX, height - 1),
                                                            centre, int(x0), right)
                                             : std::nullopt;
        ASSERT_EQ(horizontal.has_value(), plainH.has_value()) << "query " << q;
        if (horizontal) {
            EXPECT_DOUBLE_EQ(horizontal->position, height - plainH->position);
            EXPECT_FLOAT_EQ(horizontal->strength, plainH->strength);
        }
    }
}

}  // namespace
}  // namespace halvane
