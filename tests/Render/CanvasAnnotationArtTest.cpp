#include "Model/AnnotationMetrics.h"
#include "Render/CanvasAnnotationArt.h"
#include "Render/CanvasAnnotationBitmaps.h"
#include "support/GuiApplication.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <QImage>

#include <cmath>

namespace halvane {
namespace {

class CanvasAnnotationArtTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }
    test::TemporaryDirectory package;
};

CanvasAnnotation annotation(CanvasAnnotationKind kind, Point position, Size span) {
    CanvasAnnotation a;
    a.kind = kind;
    a.position = position;
    a.span = span;
    a.start = 0;
    a.end = 5;
    return a;
}

bool inked(const QImage& image, double x, double y) {
    const int ix = static_cast<int>(x), iy = static_cast<int>(y);
    if (ix < 0 || iy < 0 || ix >= image.width() || iy >= image.height()) return false;
    return qAlpha(image.pixel(ix, iy)) > 128;
}

const Size canvas720{1280, 720};

TEST_F(CanvasAnnotationArtTest, ACounterOnA720CanvasUsesMetricScaleOneAndIsCentredOnItsPosition) {
    const CanvasAnnotation counter = annotation(CanvasAnnotationKind::counter, {0.3, 0.6}, {0.1, 0.4});
    const auto art = CanvasAnnotationArt::render(counter, canvas720, 1, 1 << 24, package.path());
    ASSERT_TRUE(art);
    const AnnotationMetrics m(counter.style, 1);
    const double side = 128 + 2 * (2 + 2 * m.shadowBlur + m.shadowOffset);
    EXPECT_NEAR(art->size.width, std::ceil(side), 1e-9);
    EXPECT_NEAR(art->size.height, std::ceil(side), 1e-9);
    // The disc sits in the middle of the bitmap.
    EXPECT_EQ(art->image.pixel(art->image.width() / 2 - 40, art->image.height() / 2), qRgb(255, 59, 48));
    const Rect placed = CanvasAnnotationArt::canvasRect(counter, canvas720, *art);
    EXPECT_NEAR(placed.midX(), 0.3 * 1280, 1e-9);
    EXPECT_NEAR(placed.midY(), 0.6 * 720, 1e-9);
}

TEST_F(CanvasAnnotationArtTest, AnArrowKeepsItsDirectionAndGrowsByHeadAndShadow) {
    // Positive span: from lower left to upper right as seen on the canvas.
    const CanvasAnnotation arrow = annotation(CanvasAnnotationKind::arrow, {0.5, 0.5}, {0.2, 0.1});
    const auto art = CanvasAnnotationArt::render(arrow, canvas720, 2, 1 << 24, package.path());
    ASSERT_TRUE(art);
    const AnnotationMetrics m(arrow.style, 1);
    const double grow = m.headLength + 2 * m.shadowBlur + m.shadowOffset;
    EXPECT_NEAR(art->size.width, std::ceil((256 + 2 * grow) * 2) / 2, 1e-9);
    EXPECT_NEAR(art->size.height, std::ceil((72 + 2 * grow) * 2) / 2, 1e-9);

    // In the upright bitmap (2 pixels a canvas pixel) the head is at the upper right.
    const QImage& image = art->image;
    const double cx = image.width() / 2.0, cy = image.height() / 2.0;
    const double len = std::hypot(256, 72);
    const double ux = 256 / len, uy = -72 / len;  // toward the end, image coordinates (y down)
    const double vx = -uy, vy = ux;
    auto at = [&](double along, double across) {  // canvas pixels from the centre, two image pixels each
        return inked(image, cx + 2 * (along * ux + across * vx), cy + 2 * (along * uy + across * vy));
    };
    const double half = len / 2, wing = 0.3 * m.headLength;
    EXPECT_TRUE(at(half - 0.9 * m.headLength, wing));
    EXPECT_TRUE(at(half - 0.9 * m.headLength, -wing));
    EXPECT_FALSE(at(-half + 0.9 * m.headLength, wing));
    EXPECT_TRUE(at(0, 0));
}

TEST_F(CanvasAnnotationArtTest, APictureComesFromThePackageAndAMissingOneDrawsNothing) {
    CanvasAnnotation pic = annotation(CanvasAnnotationKind::image, {0.5, 0.5}, {0.25, 0.1});
    pic.style.shadow = false;
    pic.imageFileName = "overlay-1.png";
    pic.imageAspect = 2;
    EXPECT_FALSE(CanvasAnnotationArt::render(pic, canvas720, 1, 1 << 24, package.path()));

    QImage green(400, 200, QImage::Format_ARGB32_Premultiplied);
    green.fill(Qt::green);
    ASSERT_TRUE(green.save(QString::fromStdString((package / "overlay-1.png").string())));
    const auto art = CanvasAnnotationArt::render(pic, canvas720, 1, 1 << 24, package.path());
    ASSERT_TRUE(art);
    EXPECT_EQ(art->image.pixel(art->image.width() / 2, art->image.height() / 2), qRgb(0, 255, 0));
    pic.imageFileName = "../overlay-1.png";
    EXPECT_FALSE(CanvasAnnotationArt::render(pic, canvas720, 1, 1 << 24, package.path()));
}

TEST_F(CanvasAnnotationArtTest, ABitmapStaysWithinItsPixelBudget) {
    const CanvasAnnotation box = annotation(CanvasAnnotationKind::rectangle, {0.5, 0.5}, {0.8, 0.8});
    const auto art = CanvasAnnotationArt::render(box, {3840, 2160}, 2, 100000, package.path());
    ASSERT_TRUE(art);
    EXPECT_LE(art->image.width() * art->image.height(), 100000);
    EXPECT_GT(art->size.width, 0.8 * 3840);  // the size in canvas pixels is kept
    EXPECT_FALSE(CanvasAnnotationArt::render(box, {1, 500}, 1, 100000, package.path()));
}

TEST_F(CanvasAnnotationArtTest, BitmapsAreKeptWhileOnlyTimeAndPositionChange) {
    EXPECT_EQ(CanvasAnnotationBitmaps::maximumPixels(12), 699050);
    CanvasAnnotation line = annotation(CanvasAnnotationKind::line, {0.5, 0.5}, {0.2, 0.1});
    CanvasAnnotationBitmaps bitmaps;
    bitmaps.prepare({line}, canvas720, 1);
    const auto first = bitmaps.rendered(line, package.path());
    ASSERT_TRUE(first);

    line.position = {0.2, 0.3};
    line.start = 1;
    bitmaps.prepare({line}, canvas720, 1);
    EXPECT_EQ(bitmaps.entryCount(), 1u);
    EXPECT_EQ(bitmaps.rendered(line, package.path())->image.cacheKey(), first->image.cacheKey());

    line.style.colorHex = "#00FF00";
    bitmaps.prepare({line}, canvas720, 1);
    EXPECT_EQ(bitmaps.entryCount(), 0u);
    EXPECT_NE(bitmaps.rendered(line, package.path())->image.cacheKey(), first->image.cacheKey());

    bitmaps.prepare({line}, {1920, 1080}, 1);
    EXPECT_EQ(bitmaps.entryCount(), 0u);
}

}  // namespace
}  // namespace halvane
