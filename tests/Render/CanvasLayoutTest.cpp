#include "Render/CanvasLayout.h"
#include "Render/ShadowProfile.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <cmath>

namespace halvane {
namespace {

RecordingMeta source(int w, int h) {
    RecordingMeta meta;
    meta.pixelWidth = w;
    meta.pixelHeight = h;
    return meta;
}

EditSettings withAspect(CanvasAspect aspect) {
    EditSettings settings;
    settings.canvasAspect = aspect;
    return settings;
}

TEST(CanvasSize, OddSourceSizesRoundDownToEven) {
    EXPECT_EQ(canvasSize(source(1367, 769), withAspect(CanvasAspect::autoAspect), 0), (Size{1366, 768}));
    EXPECT_EQ(canvasSize(source(1367, 769), withAspect(CanvasAspect::autoAspect), -5), (Size{1366, 768}));
}

TEST(CanvasSize, ShortSideFollowsTheSourceOrTheFixedAspect) {
    // 1.5:1 source at short side 721: width 1081.5 floors to 1080, height 721 to 720.
    EXPECT_EQ(canvasSize(source(1500, 1000), withAspect(CanvasAspect::autoAspect), 721), (Size{1080, 720}));
    // A tall source takes the short side as its width.
    EXPECT_EQ(canvasSize(source(1000, 2000), withAspect(CanvasAspect::autoAspect), 720), (Size{720, 1440}));
    EXPECT_EQ(canvasSize(source(1920, 1080), withAspect(CanvasAspect::vertical9x16), 1080), (Size{1080, 1920}));
    EXPECT_EQ(canvasSize(source(1920, 1080), withAspect(CanvasAspect::social4x5), 1080), (Size{1080, 1350}));
    EXPECT_EQ(canvasSize(source(1920, 1080), withAspect(CanvasAspect::classic4x3), 1080), (Size{1440, 1080}));
}

TEST(CanvasSize, FixedAspectAtSourceSizeGrowsToHoldTheCroppedSource) {
    EditSettings settings = withAspect(CanvasAspect::wide16x9);
    settings.sourceCrop = Rect(0.3, 0, 0.25, 1);  // a portrait strip of a 4K frame: 960 × 2160
    const Size size = canvasSize(source(3840, 2160), settings, 0);
    // max(960, 2160 × 16/9) = 3840; 3840 / (16/9) = 2160.
    EXPECT_EQ(size, (Size{3840, 2160}));
    settings.canvasAspect = CanvasAspect::square;
    EXPECT_EQ(canvasSize(source(3840, 2160), settings, 0), (Size{2160, 2160}));
    settings.sourceCrop.reset();
    EXPECT_EQ(canvasSize(source(3840, 2160), settings, 0), (Size{3840, 3840}));
}

TEST(CropRegion, ClampsSidesAndKeepsTheRegionInside) {
    EditSettings settings;
    EXPECT_EQ(CropRegion::from(settings), (CropRegion{0, 0, 1, 1}));
    settings.sourceCrop = Rect(0.95, -0.2, 0.05, 2);
    const CropRegion crop = CropRegion::from(settings);
    EXPECT_NEAR(crop.x, 0.9, 1e-12);
    EXPECT_EQ(crop.y, 0);
    EXPECT_NEAR(crop.width, 0.1, 1e-12);
    EXPECT_EQ(crop.height, 1);
}

TEST(ContentRect, PaddingIsClampedAndFitIsSnappedToQuarterPixels) {
    const Size canvas{1000, 500};
    // Padding 0.5 behaves as 0.35: margin 175, inner 650 × 150.
    EXPECT_EQ(CanvasLayout::contentRect(canvas, 2, 0.5), CanvasLayout::contentRect(canvas, 2, 0.35));
    const Rect fit = CanvasLayout::contentRect(canvas, 2, 0.35);
    EXPECT_EQ(fit, Rect(350, 175, 300, 150));
    // 7:3 in 100 × 100 leaves fractions of a pixel.
    const Rect snapped = CanvasLayout::contentRect({100, 100}, 7.0 / 3, 0);
    EXPECT_EQ(snapped.height(), 42.75);  // 42.857… to the nearest quarter
    EXPECT_EQ(snapped.y(), 28.5);        // 28.571…
}

TEST(ContentRect, TinyCanvasGivesTheWholeCanvas) {
    EXPECT_EQ(CanvasLayout::contentRect({20, 20}, 1, 0.3), Rect(0, 0, 20, 20));  // inner 8 × 8
    EXPECT_NE(CanvasLayout::contentRect({30, 30}, 1, 0.3), Rect(0, 0, 30, 30));  // inner 12 × 12
}

TEST(VideoAspect, FollowsTheCropAndDefaultsToWide) {
    EXPECT_NEAR(CanvasLayout::videoAspect(source(0, 0), {}), 16.0 / 9, 1e-12);
    EXPECT_NEAR(CanvasLayout::videoAspect(source(2000, 1000), {0, 0, 0.5, 1}), 1.0, 1e-12);
}

TEST(CardLayout, InsetOnAWideVideoKeepsTheCardWithinTheShortSide) {
    const CardLayout layout = CanvasLayout::cardLayout({1920, 1080}, 16.0 / 9, 0.1, 0.1, 0.1);
    const Rect& content = layout.content;
    EXPECT_NEAR(layout.card.height(), content.height(), 0.25);
    EXPECT_LT(layout.card.width(), content.width() + 0.25);
    const double base = content.height() / 1.2, gap = 0.1 * base;
    EXPECT_NEAR(layout.video.height(), base, 0.25);
    EXPECT_NEAR(layout.video.width(), base * 16 / 9, 0.25);
    EXPECT_NEAR(layout.video.minX() - layout.card.minX(), gap, 0.25);
    EXPECT_NEAR(layout.card.midX(), content.midX(), 0.25);
    for (double v : {layout.card.x(), layout.card.y(), layout.video.width(), layout.video.height()})
        EXPECT_EQ(v * 4, std::round(v * 4));
}

TEST(CardLayout, InsetOnATallVideoUsesTheWidthAsBase) {
    const CardLayout layout = CanvasLayout::cardLayout({1080, 1920}, 9.0 / 16, 0, 0.2, 0);
    EXPECT_NEAR(layout.card.width(), 1080, 0.25);
    EXPECT_NEAR(layout.video.width(), 1080 / 1.4, 0.25);
    EXPECT_NEAR(layout.video.height(), 1080 / 1.4 * 16 / 9, 0.25);
}

TEST(CardLayout, InsetLimitsAndRadii) {
    const Size canvas{1600, 900};
    EXPECT_EQ(CanvasLayout::cardLayout(canvas, 16.0 / 9, 0.1, 0.5, 0.1),
              CanvasLayout::cardLayout(canvas, 16.0 / 9, 0.1, 0.2, 0.1));
    const CardLayout none = CanvasLayout::cardLayout(canvas, 16.0 / 9, 0.1, 0.0005, 0.1);
    EXPECT_EQ(none.card, none.video);
    EXPECT_EQ(none.innerRadius, none.cardRadius);
    // Half circles at fraction 0.5 (and above); the video's radius is the card's minus the gap.
    const CardLayout round = CanvasLayout::cardLayout(canvas, 16.0 / 9, 0.1, 0.05, 0.9);
    EXPECT_DOUBLE_EQ(round.cardRadius, round.card.height() / 2);
    const double gap = round.video.minX() - round.card.minX();
    EXPECT_DOUBLE_EQ(round.innerRadius, round.cardRadius - gap);
    // Never below 2 when the gap eats the radius.
    const CardLayout square = CanvasLayout::cardLayout(canvas, 16.0 / 9, 0.1, 0.2, 0.01);
    EXPECT_EQ(square.innerRadius, 2);
}

TEST(WebcamBubble, PortraitKeepsTheSquaresArea) {
    EXPECT_EQ(CanvasLayout::webcamBubbleSize({WebcamShape::circle, WebcamPortraitRatio::nineSixteen}, 100),
              (Size{100, 100}));
    const Size portrait = CanvasLayout::webcamBubbleSize({WebcamShape::portrait, WebcamPortraitRatio::nineSixteen}, 100);
    EXPECT_NEAR(portrait.width, 75, 1e-9);
    EXPECT_NEAR(portrait.height, 133.333333, 1e-5);
    EXPECT_NEAR(portrait.width * portrait.height, 10000, 1e-6);
    const Size fourFive = CanvasLayout::webcamBubbleSize({WebcamShape::portrait, WebcamPortraitRatio::fourFive}, 100);
    EXPECT_NEAR(fourFive.width / fourFive.height, 0.8, 1e-12);
}

TEST(Squircle, StartsAtTheRightMiddleAndBulgesPastTheEllipse) {
    const Rect rect(10, 20, 200, 100);
    const auto points = CanvasLayout::squirclePoints(rect);
    ASSERT_EQ(points.size(), 256u);
    EXPECT_NEAR(points[0].x, 210, 1e-9);
    EXPECT_NEAR(points[0].y, 70, 1e-9);
    EXPECT_NEAR(points[64].y, 120, 1e-9);  // a quarter turn: the top, with y up
    // At 45° the point lies outside the ellipse of the same rectangle.
    EXPECT_NEAR(points[32].x, 110 + 100 * std::pow(2, 0.25) * std::sqrt(0.5), 1e-9);
    EXPECT_GT(std::hypot((points[32].x - 110) / 100, (points[32].y - 70) / 50), 1.0);
    const QPainterPath path = CanvasLayout::squirclePath(rect, 200);
    EXPECT_NEAR(path.boundingRect().top(), 200 - 120, 1e-6);
}

TEST(ShadowProfile, LayersScaleWithClampedStrength) {
    const ShadowProfile full(2.0);
    ASSERT_EQ(full.layers.size(), 3u);
    EXPECT_EQ(full, ShadowProfile(1.0));
    EXPECT_DOUBLE_EQ(full.layers[0].blurFraction, 0.075);
    EXPECT_DOUBLE_EQ(ShadowProfile(0.5).layers[1].alpha, 0.15);
    const ShadowProfile none(0);
    ASSERT_EQ(none.layers.size(), 3u);
    for (const auto& layer : none.layers) EXPECT_EQ(layer, ShadowProfile::Layer{});
}

TEST(ShadowProfile, FallsBelowTheCardAndZeroStrengthDrawsOnlyTheShape) {
    QImage canvas(400, 300, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::white);
    QPainterPath card;
    card.addRect(100, 80, 200, 100);  // top-left pixels: bottom edge at y = 180
    ShadowProfile(1).draw(canvas, card, 100);
    auto darkness = [&](int x, int y) { return 255 - qRed(canvas.pixel(x, y)); };
    EXPECT_GT(darkness(200, 182), darkness(200, 78) + 20);  // more below than above
    EXPECT_GT(darkness(200, 182), 30);
    EXPECT_EQ(darkness(200, 130), 255);                     // the black shape itself

    QImage plain(400, 300, QImage::Format_ARGB32_Premultiplied);
    plain.fill(Qt::white);
    ShadowProfile(0).draw(plain, card, 100);
    EXPECT_EQ(qRed(plain.pixel(200, 130)), 0);
    EXPECT_EQ(qRed(plain.pixel(200, 182)), 255);
    QImage untouched = plain;
    ShadowProfile(0).drawShadowsOnly(untouched, card, 100);
    EXPECT_EQ(untouched, plain);
}

}  // namespace
}  // namespace halvane
