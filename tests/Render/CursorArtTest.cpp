#include "Render/CursorArt.h"

#include <gtest/gtest.h>

#include <cmath>

namespace halvane {
namespace {

constexpr std::array allShapes = {CursorShape::arrow,        CursorShape::iBeam,          CursorShape::pointingHand,
                                  CursorShape::closedHand,   CursorShape::openHand,       CursorShape::crosshair,
                                  CursorShape::resizeLeftRight, CursorShape::resizeUpDown, CursorShape::contextualMenu,
                                  CursorShape::operationNotAllowed};

int alphaAt(const QImage& image, double x, double y) {
    return qAlpha(image.pixel(static_cast<int>(x), static_cast<int>(y)));
}

TEST(CursorArt, DotIsAWhiteRingAroundABlackDiscWithAShadowBelow) {
    const auto& dot = CursorArt::dot();
    ASSERT_TRUE(dot);
    EXPECT_EQ(dot->image.size(), QSize(96, 96));
    EXPECT_EQ(dot->pointSize, (Size{22, 22}));
    EXPECT_EQ(dot->hotspotUnit, (Point{0.5, 0.5}));
    const QRgb centre = dot->image.pixel(48, 48);
    EXPECT_LT(qRed(centre), 50);  // black at 0.85 over white
    const QRgb ring = dot->image.pixel(48, 19);
    EXPECT_EQ(qAlpha(ring), 255);
    EXPECT_GT(qRed(ring), 245);
    // The shadow is cast downward: more of it under the disc than over it.
    EXPECT_GT(alphaAt(dot->image, 48, 84), alphaAt(dot->image, 48, 11) + 10);
    EXPECT_EQ(alphaAt(dot->image, 2, 2), 0);
}

TEST(CursorArt, DotStyleIgnoresTheShape) {
    for (CursorShape shape : allShapes) {
        auto cursor = CursorArt::cursor(CursorStyle::dot, shape);
        ASSERT_TRUE(cursor);
        EXPECT_EQ(*cursor, *CursorArt::dot());
    }
}

TEST(CursorArt, RippleRingStrokesTheInnerCircleInTwoWidths) {
    const auto& ring = CursorArt::rippleRing();
    ASSERT_TRUE(ring);
    ASSERT_EQ(ring->size(), QSize(256, 256));
    // The circle of diameter 192 runs through (128, 32): the narrow stroke is opaque there.
    const QRgb onCircle = ring->pixel(128, 32);
    EXPECT_EQ(qAlpha(onCircle), 255);
    EXPECT_NEAR(qBlue(onCircle), 255, 1);
    EXPECT_NEAR(qRed(onCircle), 10, 2);
    // Only the wide, faint stroke reaches 10 pixels off the circle.
    EXPECT_NEAR(alphaAt(*ring, 128, 22), std::lround(0.35 * 255), 3);
    EXPECT_EQ(alphaAt(*ring, 128, 128), 0);
    EXPECT_EQ(alphaAt(*ring, 128, 15), 0);
}

TEST(CursorArt, DiscsStaySolidToTheirStopThenFade) {
    const auto& circle = CursorArt::circleDisc();
    ASSERT_TRUE(circle);
    EXPECT_EQ(alphaAt(*circle, 128, 128), 255);
    EXPECT_EQ(alphaAt(*circle, 128 + 60, 128), 255);  // 0.72 × 96 ≈ 69
    EXPECT_LT(alphaAt(*circle, 128 + 88, 128), 80);
    EXPECT_EQ(alphaAt(*circle, 128 + 100, 128), 0);

    const auto& spot = CursorArt::spotlightDisc();
    ASSERT_TRUE(spot);
    EXPECT_EQ(spot->size(), QSize(512, 512));
    EXPECT_EQ(alphaAt(*spot, 256 + 150, 256), 255);  // 0.62 × 256 ≈ 159
    EXPECT_EQ(alphaAt(*spot, 2, 2), 0);
    EXPECT_EQ(qRed(spot->pixel(256, 256)), 0);
}

TEST(CursorArt, EveryShapeHasASharpPointerWithItsHotspot) {
    const auto& table = CursorArt::systemCursors();
    ASSERT_EQ(table.size(), allShapes.size());
    constexpr double defaultCursorScale = 3;
    for (CursorShape shape : allShapes) {
        const auto& cursor = table.at(shape);
        SCOPED_TRACE(std::string(enumName(shape)));
        EXPECT_GT(cursor.pointSize.width, 0);
        EXPECT_GE(cursor.hotspotUnit.x, 0);
        EXPECT_LE(cursor.hotspotUnit.x, 1);
        EXPECT_GE(cursor.hotspotUnit.y, 0);
        EXPECT_LE(cursor.hotspotUnit.y, 1);
        // At the default scale on a canvas as wide as the source the bitmap is never enlarged.
        EXPECT_GE(cursor.image.width(), cursor.pointSize.width * defaultCursorScale);
        // Something is drawn near the hot spot.
        const int hx = static_cast<int>(cursor.hotspotUnit.x * cursor.image.width());
        const int hy = static_cast<int>(cursor.hotspotUnit.y * cursor.image.height());
        int opaque = 0;
        for (int dy = -6; dy <= 6; ++dy)
            for (int dx = -6; dx <= 6; ++dx)
                if (cursor.image.rect().contains(hx + dx, hy + dy)) opaque += alphaAt(cursor.image, hx + dx, hy + dy) > 128;
        EXPECT_GT(opaque, 0);
    }
}

TEST(CursorArt, ArrowAndSpotlightTakeTheShapesPointer) {
    for (CursorStyle style : {CursorStyle::arrow, CursorStyle::spotlight}) {
        auto hand = CursorArt::cursor(style, CursorShape::pointingHand);
        ASSERT_TRUE(hand);
        EXPECT_EQ(*hand, CursorArt::systemCursors().at(CursorShape::pointingHand));
        EXPECT_FALSE(*hand == *CursorArt::arrow());
    }
}

TEST(CursorArt, ThemeCursorsComeAtTheThemesLargestSize) {
    auto arrow = CursorArt::themeCursor(CursorShape::arrow, "Adwaita");
    if (!arrow) GTEST_SKIP() << "Adwaita cursor theme not installed";
    EXPECT_GE(arrow->image.width(), 64);
    // Its nominal size maps to 24 points whatever the pixel size.
    EXPECT_GT(arrow->pointSize.width, 12);
    EXPECT_LE(arrow->pointSize.width, 48);
    EXPECT_LT(arrow->hotspotUnit.x, 0.3);  // the tip is at the upper left
    EXPECT_LT(arrow->hotspotUnit.y, 0.3);
}

TEST(CursorArt, ThemesWithOnlySmallPointersAreNotUsed) {
    // DMZ's pointers stop at 48 pixels, too small for the default scale.
    if (!CursorArt::themeCursor(CursorShape::arrow, "DMZ-White", 1)) GTEST_SKIP() << "DMZ theme not installed";
    auto small = CursorArt::themeCursor(CursorShape::arrow, "DMZ-White", 1);
    if (small->image.width() >= 64) GTEST_SKIP() << "this DMZ build has large pointers";
    EXPECT_FALSE(CursorArt::themeCursor(CursorShape::arrow, "DMZ-White", 64));
}

TEST(CursorArt, VectorArrowHasItsTipAtTheHotspot) {
    auto arrow = CursorArt::vectorCursor(CursorShape::arrow);
    EXPECT_EQ(arrow.image.width(), CursorArt::vectorPixels);
    const double hx = arrow.hotspotUnit.x * arrow.image.width();
    const double hy = arrow.hotspotUnit.y * arrow.image.height();
    EXPECT_GT(alphaAt(arrow.image, hx + 2, hy + 6), 200);  // body just below the tip
    EXPECT_LT(qRed(arrow.image.pixel(static_cast<int>(hx + 4), static_cast<int>(hy + 30))), 60);  // black body
    EXPECT_LT(alphaAt(arrow.image, hx - 8, hy - 8), 40);  // nothing beyond the tip
    // Crisp: the body's edge (its soft shadow stays under half opacity) is a pixel or two wide.
    int x = static_cast<int>(hx + 40);
    int y = static_cast<int>(hy + 50);
    int from = 0;
    while (x - from > 0 && alphaAt(arrow.image, x - from, y) > 250) ++from;
    int edgeWidth = 0;
    while (x - from - edgeWidth > 0 && alphaAt(arrow.image, x - from - edgeWidth, y) >= 128 &&
           alphaAt(arrow.image, x - from - edgeWidth, y) < 250)
        ++edgeWidth;
    EXPECT_LE(edgeWidth, 2);
}

}  // namespace
}  // namespace halvane
