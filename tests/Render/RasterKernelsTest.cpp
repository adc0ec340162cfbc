#include "Render/CanvasCoordinates.h"
#include "Render/RasterKernels.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <cmath>

namespace halvane {
namespace {

QImage solid(int w, int h, QColor c) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(c);
    return image;
}

// Left half black, right half white, both opaque.
QImage stepEdge(int w, int h) {
    QImage image = solid(w, h, Qt::black);
    QPainter(&image).fillRect(QRect(w / 2, 0, w - w / 2, h), Qt::white);
    return image;
}

int red(const QImage& image, int x, int y) { return qRed(image.pixel(x, y)); }

// Distance between the 15.9 % and 84.1 % points of a blurred step: two sigma for a Gaussian.
double measuredSigma(const QImage& blurred, int y) {
    double low = 0, high = 0;
    for (int x = 1; x < blurred.width(); ++x) {
        auto crossing = [&](double level) {
            double a = red(blurred, x - 1, y), b = red(blurred, x, y);
            return a < level && b >= level ? (x - 1) + (level - a) / (b - a) : -1.0;
        };
        if (double c = crossing(255 * 0.159); c >= 0) low = c;
        if (double c = crossing(255 * 0.841); c >= 0) high = c;
    }
    return (high - low) / 2;
}

class GaussianBlurSigmas : public ::testing::TestWithParam<double> {};

TEST_P(GaussianBlurSigmas, StepEdgeSpreadsBySigmaAndStaysSymmetric) {
    const double sigma = GetParam();
    QImage image = stepEdge(400, 6);
    gaussianBlur(image, sigma);
    EXPECT_NEAR(measuredSigma(image, 3), sigma, std::max(0.35, sigma * 0.06));
    // Symmetry about the edge between pixels 199 and 200: the two sides sum to white.
    for (int d = 0; d < 4 * sigma && d < 200; ++d)
        EXPECT_NEAR(red(image, 199 - d, 3) + red(image, 200 + d, 3), 255, 2) << "offset " << d;
    // Monotonic from black to white.
    for (int x = 1; x < 400; ++x) EXPECT_GE(red(image, x, 3), red(image, x - 1, 3)) << x;
}

INSTANTIATE_TEST_SUITE_P(SmallAndLarge, GaussianBlurSigmas, ::testing::Values(1.0, 2.5, 4.0, 5.0, 12.0, 20.0, 30.0));

TEST(GaussianBlur, ClampsToTheEdgeInsteadOfFadingIn) {
    // Zero padding would darken and thin the border of an opaque picture.
    for (double sigma : {1.5, 20.0}) {
        QImage image = solid(64, 48, QColor(200, 100, 50));
        gaussianBlur(image, sigma);
        for (QPoint p : {QPoint(0, 0), QPoint(63, 47), QPoint(0, 47), QPoint(32, 0)}) {
            QRgb px = image.pixel(p);
            EXPECT_EQ(qAlpha(px), 255);
            EXPECT_NEAR(qRed(px), 200, 1);
            EXPECT_NEAR(qGreen(px), 100, 1);
        }
    }
}

TEST(GaussianBlur, BlursVerticallyAsMuchAsHorizontally) {
    QImage image(200, 200, QImage::Format_Alpha8);
    image.fill(0);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x)
            if (x >= 100 && y >= 100) image.scanLine(y)[x] = 255;
    gaussianBlur(image, 8);
    for (int d = 0; d < 30; ++d) EXPECT_EQ(image.scanLine(150)[70 + d], image.scanLine(70 + d)[150]) << d;
}

TEST(GaussianBlur, KeepsPremultipliedComponentsWithinAlpha) {
    QImage image(80, 80, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter(&image).fillRect(QRect(20, 20, 40, 40), QColor(255, 255, 255, 180));
    gaussianBlur(image, 6);
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 80; ++x) {
            QRgb px = image.pixel(x, y);
            ASSERT_LE(qRed(px), qAlpha(px));
        }
    EXPECT_GT(qAlpha(image.pixel(16, 40)), 0);  // spread outside
    EXPECT_NEAR(qAlpha(image.pixel(40, 40)), 180, 2);
}

TEST(GaussianBlur, ConvertsOtherFormatsAndIgnoresNonPositiveSigma) {
    QImage rgb = stepEdge(50, 4).convertToFormat(QImage::Format_RGB32);
    QImage same = rgb;
    gaussianBlur(same, 0);
    EXPECT_EQ(same, rgb);
    gaussianBlur(rgb, 3);
    EXPECT_EQ(rgb.format(), QImage::Format_ARGB32_Premultiplied);
    EXPECT_GT(red(rgb, 24, 2), 0);
}

TEST(Pixellate, CellsStartAtTheGivenCorner) {
    QImage image(40, 40, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x) image.setPixel(x, y, qRgb(x * 6, y * 6, 0));
    pixellate(image, 8, QPointF(3, 5));
    // Columns 3 ... 10 form one cell, 11 ... 18 the next.
    EXPECT_EQ(image.pixel(3, 6), image.pixel(10, 12));
    EXPECT_NE(image.pixel(10, 6), image.pixel(11, 6));
    EXPECT_NE(image.pixel(2, 6), image.pixel(3, 6));
    EXPECT_NE(image.pixel(5, 4), image.pixel(5, 5));
    // The mean of x over 3 ... 10 is 6.5 → red 39.
    EXPECT_NEAR(qRed(image.pixel(5, 8)), 39, 1);
}

TEST(Pixellate, CellsAlignWithACanvasRectanglesLowerLeftCorner) {
    // A 24 × 16 mask at (10, 7) on a 50 × 40 canvas, y up: cells of 8 tile it exactly from its
    // lower-left corner, so the mask shows whole cells only.
    QImage image(50, 40, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 50; ++x) image.setPixel(x, y, qRgb(x * 5, y * 6, 0));
    const Rect mask(10, 7, 24, 16);
    const QRect box = toTopLeftPixels(mask, 40);
    ASSERT_EQ(box, QRect(10, 17, 24, 16));
    pixellate(image, 8, QPointF(box.left(), box.top() + box.height()), box);
    auto cellAt = [&](int x, int y) { return image.pixel(x, y); };
    for (int cy : {17, 25})
        for (int cx : {10, 18, 26}) {
            for (int dy = 0; dy < 8; ++dy)
                for (int dx = 0; dx < 8; ++dx) ASSERT_EQ(cellAt(cx + dx, cy + dy), cellAt(cx, cy)) << cx << "," << cy;
            // Each cell holds the mean of its own pixels: x from cx to cx + 7 averages cx + 3.5.
            EXPECT_NEAR(qRed(cellAt(cx, cy)), (cx + 3.5) * 5, 1);
        }
    EXPECT_NE(cellAt(10, 24), cellAt(10, 25));
    EXPECT_EQ(cellAt(9, 20), qRgb(45, 120, 0));  // outside the mask: untouched
}

TEST(Pixellate, ChangesOnlyTheRegionButAveragesWholeCells) {
    QImage image = stepEdge(32, 8);
    const QImage before = image;
    // One 8-pixel cell spans 12 ... 19, half black, half white; the region covers only 16 ... 19.
    pixellate(image, 8, QPointF(4, 0), QRect(16, 0, 4, 8));
    EXPECT_NEAR(red(image, 17, 2), 128, 1);
    EXPECT_EQ(image.pixel(12, 2), before.pixel(12, 2));
    EXPECT_EQ(image.pixel(20, 2), before.pixel(20, 2));
}

TEST(Pixellate, FractionalCellsTileWithoutGaps) {
    QImage image = stepEdge(100, 10);
    pixellate(image, 6.5, QPointF(0, 0));
    // Every pixel was written with some cell's mean: no pixel keeps a value outside black/white/means.
    int distinct = 0;
    for (int x = 1; x < 100; ++x) distinct += image.pixel(x, 0) != image.pixel(x - 1, 0);
    EXPECT_LE(distinct, 16);
    EXPECT_GE(distinct, 1);
}

TEST(MaskBlend, TakesSourceWhereWhiteAndKeepsDestinationWhereBlack) {
    QImage destination = solid(3, 1, QColor(0, 0, 200));
    QImage source = solid(3, 1, QColor(200, 0, 0));
    QImage mask(3, 1, QImage::Format_Grayscale8);
    mask.scanLine(0)[0] = 255;
    mask.scanLine(0)[1] = 0;
    mask.scanLine(0)[2] = 128;
    ASSERT_TRUE(maskBlend(destination, source, mask));
    EXPECT_EQ(destination.pixel(0, 0), qRgb(200, 0, 0));
    EXPECT_EQ(destination.pixel(1, 0), qRgb(0, 0, 200));
    EXPECT_NEAR(qRed(destination.pixel(2, 0)), 100, 1);
    EXPECT_NEAR(qBlue(destination.pixel(2, 0)), 100, 1);
    EXPECT_FALSE(maskBlend(destination, solid(2, 1, Qt::red), mask));
}

TEST(AlphaFadeAndDissolve, ScaleAndAverage) {
    QImage image = solid(2, 2, QColor(200, 100, 0, 255));
    alphaFade(image, 0.5);
    QRgb px = image.pixel(0, 0);  // premultiplied: every component halves
    EXPECT_NEAR(qAlpha(px), 128, 1);
    EXPECT_NEAR(qRed(px), 100, 1);
    EXPECT_NEAR(qGreen(px), 50, 1);

    QImage mean = solid(2, 2, QColor(0, 0, 0));
    dissolve(mean, solid(2, 2, QColor(90, 90, 90)), 1.0 / 2);
    dissolve(mean, solid(2, 2, QColor(180, 180, 180)), 1.0 / 3);
    EXPECT_NEAR(qRed(mean.pixel(1, 1)), 90, 1);
}

TEST(AverageInto, GivesTheRoundedMeanAcrossEachRowsAreasAndLeavesTheRest) {
    const std::vector<QImage> samples{solid(8, 4, QColor(0, 10, 255)), solid(8, 4, QColor(100, 11, 0)),
                                      solid(8, 4, QColor(200, 11, 0))};
    QImage out = solid(8, 4, QColor(7, 7, 7));
    // Two areas on row 1 leave a gap between them that is averaged too; row 3 has none.
    ASSERT_TRUE(averageInto(out, samples, {QRect(0, 0, 2, 2), QRect(5, 1, 2, 2), QRect(-4, -4, 2, 2)}));
    for (QPoint p : {QPoint(0, 0), QPoint(1, 1), QPoint(3, 1), QPoint(6, 2)})
        EXPECT_EQ(out.pixel(p), qRgb(100, 11, 85)) << p.x() << "," << p.y();  // 32/3 rounds to 11
    for (QPoint p : {QPoint(3, 0), QPoint(7, 1), QPoint(0, 3), QPoint(4, 2)})
        EXPECT_EQ(out.pixel(p), qRgb(7, 7, 7)) << p.x() << "," << p.y();
    // Six samples at the level boundaries: 0 and 255 stay exact.
    const std::vector<QImage> six(6, solid(2, 1, QColor(255, 0, 255)));
    QImage extremes = solid(2, 1, Qt::gray);
    ASSERT_TRUE(averageInto(extremes, six, {QRect(0, 0, 2, 1)}));
    EXPECT_EQ(extremes.pixel(1, 0), qRgb(255, 0, 255));
    // Mismatched sizes and an output that shares pixels with a sample are refused.
    EXPECT_FALSE(averageInto(out, {solid(2, 2, Qt::red)}, {out.rect()}));
    QImage shared = samples[0];
    EXPECT_FALSE(averageInto(shared, samples, {shared.rect()}));
}

TEST(Shadow, FallsBelowTheShapeByItsOffset) {
    QImage target = solid(100, 100, Qt::white);
    QPainterPath path;
    path.addRect(30, 30, 40, 20);
    drawPathShadow(target, path, {QColor(0, 0, 0, 255), 4, QPointF(0, 12)});
    EXPECT_LT(red(target, 50, 58), 60);    // below the shape: dark
    EXPECT_EQ(red(target, 50, 22), 255);   // above it: untouched
    EXPECT_EQ(red(target, 10, 50), 255);   // far to the side: untouched
    EXPECT_LT(red(target, 50, 46), 60);    // under the shape too (a later fill covers it)
}

TEST(Shadow, BlurSpreadsTheEdgeByHalfTheBlurLength) {
    QImage target = solid(200, 60, Qt::white);
    QPainterPath path;
    path.addRect(100, -100, 200, 300);  // right half, taller than the target
    drawPathShadow(target, path, {QColor(0, 0, 0, 255), 20, QPointF()});
    QImage inverted = target;
    inverted.invertPixels();
    EXPECT_NEAR(measuredSigma(inverted, 30), 10, 1);
}

TEST(Shadow, ImageShadowFollowsTheImageAlpha) {
    QImage shape(20, 20, QImage::Format_ARGB32_Premultiplied);
    shape.fill(Qt::transparent);
    QPainter(&shape).fillRect(QRect(0, 0, 20, 10), Qt::red);  // top half only
    QImage target = solid(60, 60, Qt::white);
    drawImageShadow(target, shape, QPointF(20, 20), {QColor(0, 0, 0, 128), 0, QPointF(0, 3)});
    EXPECT_NEAR(red(target, 30, 25), 127, 2);
    EXPECT_EQ(red(target, 30, 36), 255);
}

TEST(CanvasCoordinates, FlipsRectanglesAndRoundsHalfAwayFromZero) {
    EXPECT_EQ(toTopLeft(Rect(10, 20, 30, 40), 100), QRectF(10, 40, 30, 40));
    EXPECT_EQ(toTopLeft(Rect(40, 60, -30, -40), 100), QRectF(10, 40, 30, 40));
    EXPECT_EQ(fromTopLeft(QRectF(10, 40, 30, 40), 100), Rect(10, 20, 30, 40));
    EXPECT_EQ(toTopLeft(Point{5, 0}, 50), QPointF(5, 50));
    EXPECT_EQ(toTopLeftPixels(Rect(0.5, 0.5, 2, 2), 10), QRect(1, 7, 2, 2));
    EXPECT_EQ(toTopLeftPixels(Rect(-2.5, 1.4, 5, 1.2), 10), QRect(-3, 7, 6, 2));
    EXPECT_EQ(roundToQuarterPixel(1.125), 1.25);
    EXPECT_EQ(roundToQuarterPixel(-1.125), -1.25);
    EXPECT_EQ(roundToQuarterPixel(1.12), 1.0);
    QPointF mapped = bottomLeftTransform(100).map(QPointF(3, 10));
    EXPECT_EQ(mapped, QPointF(3, 90));
}

}  // namespace
}  // namespace halvane
