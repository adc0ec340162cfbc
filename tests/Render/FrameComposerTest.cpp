#include "Model/FocusTimeline.h"
#include "Render/CanvasLayout.h"
#include "Render/FrameComposer.h"
#include "support/GuiApplication.h"
#include "CompositionSources.h"

#include <gtest/gtest.h>

#include <QColor>
#include <QPainter>

#include <functional>

using namespace halvane;
using test::FunctionFrames;
using test::solidFrame;
using test::zoomOn;

namespace {

// Left half green, right half red.
QImage splitFrame() {
    QImage image = solidFrame(Qt::red);
    QPainter p(&image);
    p.fillRect(0, 0, 160, 200, Qt::green);
    return image;
}

QImage checkerFrame() {
    QImage image = solidFrame(Qt::white);
    QPainter p(&image);
    for (int y = 0; y < 200; y += 2)
        for (int x = (y / 2) % 2 * 2; x < 320; x += 4) p.fillRect(x, y, 2, 2, Qt::black);
    return image;
}

QColor pixel(const QImage& image, Point canvasPoint) {
    return QColor::fromRgba(image.pixel(int(canvasPoint.x), int(image.height() - 1 - canvasPoint.y)));
}

class FrameComposerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }

    FrameComposerTest() {
        input.meta = test::smallScreenMeta();
        input.settings.background = CanvasBackground::solid("#0000FF");
        input.settings.padding = 0.1;
        input.settings.shadow = 0;
        input.settings.cornerRadiusFraction = 0;
        input.settings.showCursor = false;
        input.settings.showKeystrokes = false;
        input.canvasSize = {640, 400};
        input.fps = 30;
    }

    CardLayout layout() const { return CanvasLayout::cardLayout(input.canvasSize, input.meta, input.settings); }

    CompositionInput input;
};

}  // namespace

TEST_F(FrameComposerTest, CardAndVideoStandWhereTheGeometrySays) {
    FunctionFrames frames([](double) { return solidFrame(Qt::red); });
    FrameComposer composer(input, {&frames});
    QImage frame = composer.composeOutputFrame(1);
    ASSERT_EQ(frame.size(), QSize(640, 400));
    const Rect video = layout().video;
    EXPECT_EQ(composer.buildStatics().videoRect, video);
    EXPECT_EQ(pixel(frame, video.center()), QColor(Qt::red));
    EXPECT_EQ(pixel(frame, {video.minX() + 2, video.minY() + 2}), QColor(Qt::red));
    // Just outside the card the background shows.
    EXPECT_EQ(pixel(frame, {video.minX() - 3, video.midY()}), QColor(Qt::blue));
    EXPECT_EQ(pixel(frame, {5, 5}), QColor(Qt::blue));
}

TEST_F(FrameComposerTest, NoFrameGivesThePlate) {
    FunctionFrames none([](double) { return QImage(); });
    FrameComposer composer(input, {&none});
    QImage frame = composer.composeOutputFrame(1);
    // The card fill stands where the video would be.
    QColor fill = pixel(frame, layout().video.center());
    EXPECT_LT(fill.red(), 30);
    EXPECT_LT(fill.blue(), 30);
}

TEST_F(FrameComposerTest, ZoomShowsTheTargetedRegion) {
    FunctionFrames frames([](double) { return splitFrame(); });
    {
        FrameComposer plain(input, {&frames});
        QImage frame = plain.composeOutputFrame(5);
        const Rect v = layout().video;
        EXPECT_EQ(pixel(frame, {v.minX() + v.width() * 0.75, v.midY()}), QColor(Qt::red));
    }
    input.settings.zooms = {zoomOn(2, {0.25, 0.5}, 0, 10)};
    FrameComposer zoomed(input, {&frames});
    QImage frame = zoomed.composeOutputFrame(5);
    const Rect v = layout().video;
    // Only the left (green) half of the source fills the video now.
    for (double fx : {0.05, 0.5, 0.95}) EXPECT_EQ(pixel(frame, {v.minX() + v.width() * fx, v.midY()}), QColor(Qt::green)) << fx;
}

TEST_F(FrameComposerTest, PointerJustOutsideTheSourceDrawsFurtherOutDoesNot) {
    input.settings.showCursor = true;
    input.settings.clickEffect = ClickEffect::none;
    input.settings.cursorSmoothness = 0;
    FunctionFrames frames([](double) { return solidFrame(Qt::white); });
    auto compose = [&](std::optional<double> x) {
        CompositionInput in = input;
        if (x) {
            for (double t = 0; t <= 10; t += 1.0 / 120) in.events.samples.push_back({t, *x, 0.5});
        }
        FrameComposer composer(in, {&frames});
        return composer.composeOutputFrame(5);
    };
    QImage none = compose(std::nullopt);
    QImage nearEdge = compose(-0.01);
    QImage farOut = compose(-0.03);
    EXPECT_NE(none, nearEdge);
    EXPECT_EQ(none, farOut);
}

TEST_F(FrameComposerTest, MasksUnderTwoPixelsVanish) {
    FunctionFrames frames([](double) { return checkerFrame(); });
    FrameComposer plainComposer(input, {&frames});
    QImage plain = plainComposer.composeOutputFrame(5);
    auto withMask = [&](double size, MaskStyle style) {
        CompositionInput in = input;
        MaskAnnotation mask;
        mask.start = 0;
        mask.end = 10;
        mask.rect = {0.4, 0.4, size, size};
        mask.style = style;
        in.settings.masks = {mask};
        FrameComposer composer(in, {&frames});
        return composer.composeOutputFrame(5);
    };
    // 512 canvas pixels show 320 source pixels: 0.003 of the width is 1.5 pixels.
    EXPECT_EQ(withMask(0.003, MaskStyle::pixelate), plain);
    EXPECT_EQ(withMask(0.003, MaskStyle::blur), plain);
    QImage pixellated = withMask(0.2, MaskStyle::pixelate);
    QImage blurred = withMask(0.2, MaskStyle::blur);
    EXPECT_NE(pixellated, plain);
    EXPECT_NE(blurred, plain);
    // Outside the mask nothing changes.
    const Rect v = layout().video;
    Point outside{v.minX() + 3, v.minY() + 3};
    EXPECT_EQ(pixel(blurred, outside), pixel(plain, outside));
    // Blurring a fine checker gives grey inside.
    QColor inside = pixel(blurred, {v.minX() + v.width() * 0.5, v.maxY() - v.height() * 0.5});
    EXPECT_GT(inside.red(), 60);
    EXPECT_LT(inside.red(), 200);
}

TEST_F(FrameComposerTest, TrailingCutShowsTheFrameJustBeforeIt) {
    CutSegment cut;
    cut.start = 8;
    cut.end = 10;
    input.settings.cuts = {cut};
    FunctionFrames frames([](double) { return solidFrame(Qt::red); });
    FrameComposer composer(input, {&frames});
    const double end = composer.speedMap().outputDuration();
    EXPECT_NEAR(end, 8, 1e-9);
    EXPECT_NEAR(composer.sourceTime(end), 8 - 1.0 / 600, 1e-9);
    EXPECT_NEAR(composer.sourceTime(4), 4, 1e-9);
}

TEST_F(FrameComposerTest, StillViewAddsNoMotionBlurSamples) {
    input.settings.motionBlur = true;
    FunctionFrames frames([](double) { return solidFrame(Qt::red); });
    FrameComposer still(input, {&frames});
    still.buildStatics();
    EXPECT_EQ(still.motionBlurSamples(5), 1);

    input.settings.zooms = {zoomOn(2, {0.3, 0.3}, 1, 9)};
    FrameComposer moving(input, {&frames});
    moving.buildStatics();
    int most = 1;
    for (double t = 0.5; t < 2.5; t += 1.0 / 30) most = std::max(most, moving.motionBlurSamples(t));
    EXPECT_GT(most, 1);
    EXPECT_LE(most, 6);
}

TEST_F(FrameComposerTest, LateStartingCardShowsTheCardFill) {
    input.meta.mode = "windows";
    input.meta.version = 2;
    input.meta.sources = {RecordingSource{"screen.mov", "A", 320, 200, 320, 200, 0},
                          RecordingSource{"screen-2.mov", "B", 320, 200, 320, 200, 5}};
    FunctionFrames first([](double) { return solidFrame(Qt::red); });
    FunctionFrames second([](double t) { return t < 0 ? QImage() : solidFrame(Qt::green); });
    FrameComposer composer(input, {&first, &second});
    QImage early = composer.composeFrame(2);
    QImage late = composer.composeFrame(7);
    auto places = FocusTimeline::placements(2, input.settings.focusSwitches, {1.6, 1.6}, input.canvasSize,
                                            input.settings.padding);
    ASSERT_EQ(places.size(), 2u);
    // The back card peeks out above the front one.
    const Rect back = places[1].rect, front = places[0].rect;
    ASSERT_GT(back.maxY(), front.maxY() + 4);
    Point middle{back.midX(), (back.maxY() + std::max(front.maxY(), back.minY())) / 2};
    QColor before = pixel(early, middle);
    QColor after = pixel(late, middle);
    EXPECT_LT(before.green(), 40);
    EXPECT_LT(before.red(), 40);
    EXPECT_GT(after.green(), before.green() + 40);
}

namespace {

// A take whose overlays outside the video come and go: a caption from 1 to 2 s and a shortcut
// pill at 1.4 s, over a source that turns from red to green at 3 s.
CompositionInput withPassingOverlays(CompositionInput input) {
    input.settings.captionsEnabled = true;
    input.settings.showKeystrokes = true;
    input.events.keys.push_back({1.4, "s", modifierCommand});
    input.transcript = test::oneCaption(1, 2);
    return input;
}

QImage redThenGreen(double t) { return solidFrame(t < 3 ? Qt::red : Qt::green); }

int largestDifference(const QImage& a, const QImage& b) {
    int most = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y), q = b.pixel(x, y);
            for (int shift : {0, 8, 16, 24}) most = std::max(most, std::abs(int((p >> shift) & 0xff) - int((q >> shift) & 0xff)));
        }
    return most;
}

}  // namespace

TEST_F(FrameComposerTest, HeldFramesStayIntactAndLaterFramesKeepNothingOfEarlierOnes) {
    const CompositionInput take = withPassingOverlays(input);
    FunctionFrames frames(redThenGreen);
    FrameComposer composer(take, {&frames});
    QImage held = composer.composeOutputFrame(1.5);
    const QImage heldCopy = held.copy();
    composer.composeOutputFrame(1.6);  // dropped at once: its picture is free for the next frame
    std::vector<QImage> later;
    for (int i = 0; i < 20; ++i) later.push_back(composer.composeOutputFrame(4 + i / 30.0));
    EXPECT_EQ(held, heldCopy);

    // Pictures reused after the caption and pill were drawn on them show neither.
    FunctionFrames freshFrames(redThenGreen);
    FrameComposer fresh(take, {&freshFrames});
    EXPECT_EQ(later.back(), fresh.composeOutputFrame(4 + 19 / 30.0));
    later.clear();
    held = QImage();
    for (double t : {1.5, 1.6, 4.0, 4.1}) {
        QImage again = composer.composeOutputFrame(t);
        FrameComposer once(take, {&freshFrames});
        EXPECT_EQ(again, once.composeOutputFrame(t)) << t;
    }
}

TEST_F(FrameComposerTest, MotionBlurIsTheMeanOfItsSamples) {
    CompositionInput take = withPassingOverlays(input);
    take.settings.zooms = {zoomOn(2.5, {0.3, 0.3}, 1, 9)};
    take.settings.motionBlur = true;
    FunctionFrames frames([](double) { return checkerFrame(); });
    FrameComposer blurred(take, {&frames});
    blurred.buildStatics();
    double worst = 0;
    int n = 1;
    for (double t = 0.9; t < 2.5; t += 1.0 / 30)
        if (int k = blurred.motionBlurSamples(t); k > n) n = k, worst = t;
    ASSERT_GT(n, 2);
    const QImage frame = blurred.composeOutputFrame(worst);

    FrameComposer plain(take, {&frames});
    std::vector<QImage> samples;
    for (int i = 0; i < n; ++i)
        samples.push_back(plain.composeFrame(plain.sourceTime(worst + (1.0 / take.fps / 2) * i / (n - 1))).copy());
    QImage mean(frame.size(), QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < mean.height(); ++y)
        for (int x = 0; x < mean.width(); ++x) {
            QRgb value = 0;
            for (int shift : {0, 8, 16, 24}) {
                double sum = 0;
                for (const QImage& s : samples) sum += (s.pixel(x, y) >> shift) & 0xff;
                value |= QRgb(std::lround(sum / n)) << shift;
            }
            mean.setPixel(x, y, value);
        }
    EXPECT_LE(largestDifference(frame, mean), 1);
    EXPECT_NE(frame, samples.front());  // the samples do differ
}

TEST_F(FrameComposerTest, BorderTilesHoldEveryPaintedPixelOfTheBand) {
    input.settings.borderWidth = 1;
    input.settings.cornerRadiusFraction = 0.05;
    for (CardBorderStyle style : {CardBorderStyle::glass, CardBorderStyle::glassDark, CardBorderStyle::liquid}) {
        input.settings.borderStyle = style;
        FrameComposer composer(input, {});
        const auto& statics = composer.buildStatics();
        ASSERT_FALSE(statics.borderImage.isNull()) << enumName(style);
        QImage covered(statics.borderImage.size(), QImage::Format_Grayscale8);
        covered.fill(0);
        long long inTiles = 0;
        for (const QRect& tile : statics.borderTiles) {
            QPainter(&covered).fillRect(tile, Qt::white);
            inTiles += (long long)tile.width() * tile.height();
        }
        int missed = 0;
        for (int y = 0; y < covered.height(); ++y)
            for (int x = 0; x < covered.width(); ++x)
                if (statics.borderImage.pixel(x, y) != 0 && qGray(covered.pixel(x, y)) == 0) ++missed;
        EXPECT_EQ(missed, 0) << enumName(style);
        // The clear middle of the card is left out.
        EXPECT_LT(inTiles, (long long)statics.borderImage.width() * statics.borderImage.height() * 3 / 4) << enumName(style);
    }
}

TEST_F(FrameComposerTest, MultiSourceCardsShowTheirSourcesAndRepeatExactlyAcrossReusedPictures) {
    input.meta.mode = "windows";
    input.meta.version = 2;
    input.meta.sources = {RecordingSource{"screen.mov", "A", 320, 200, 320, 200, 0},
                          RecordingSource{"screen-2.mov", "B", 320, 200, 320, 200, 0}};
    input.settings.cornerRadiusFraction = 0.1;
    input.settings.borderStyle = CardBorderStyle::glass;
    input.settings.borderWidth = 1;
    FocusSegment focus;
    focus.start = 4;
    focus.source = 1;
    input.settings.focusSwitches = {focus};
    FunctionFrames first([](double) { return solidFrame(Qt::red); });
    FunctionFrames second([](double) { return splitFrame(); });
    FrameComposer composer(input, {&first, &second});
    std::vector<QImage> frames;
    for (double t : {2.0, 4.1, 4.2, 8.0}) frames.push_back(composer.composeFrame(t));

    // Each card shows its own source where the focus layout puts it, corners cut round.
    auto places = FocusTimeline::placements(8, {focus}, {1.6, 1.6}, input.canvasSize, input.settings.padding);
    ASSERT_EQ(places.size(), 2u);
    const Rect a = places[0].rect, b = places[1].rect;
    const Point inA{a.minX() + a.width() * 0.5, a.minY() + 4}, inBLeft{b.minX() + b.width() * 0.25, b.midY()};
    const bool aShows = !b.contains(inA) || places[0].z > places[1].z;
    if (aShows) {
        EXPECT_GT(pixel(frames[3], inA).red(), 150);
    }
    EXPECT_GT(pixel(frames[3], inBLeft).green(), 200);  // the front card's left half is green
    const QColor corner = pixel(frames[3], {b.minX() + 0.5, b.maxY() - 0.5});
    EXPECT_LT(corner.green(), 150);  // outside the rounded corner: no source

    // Pictures, layers and scaled card art are reused from frame to frame; a fresh composer
    // gives the very same pictures.
    for (size_t i = 0; i < frames.size(); ++i) {
        const double t = std::vector<double>{2.0, 4.1, 4.2, 8.0}[i];
        FrameComposer once(input, {&first, &second});
        EXPECT_EQ(composer.composeFrame(t), once.composeFrame(t)) << t;
        EXPECT_EQ(frames[i], once.composeFrame(t)) << t;
    }
}

namespace {

// Frames whose pixels outside the region the composer announces are wrong on purpose.
class RegionOnlyFrames : public FrameSource {
public:
    const QImage* frame(double t) override {
        image_ = checkerFrame();
        QPainter p(&image_);
        p.fillRect(QRectF(QPointF(-10, -10), QPointF(320 + 10, 200 * region_.minY())), Qt::magenta);
        p.fillRect(QRectF(QPointF(-10, 200 * region_.maxY()), QPointF(330, 210)), Qt::magenta);
        p.fillRect(QRectF(QPointF(-10, -10), QPointF(320 * region_.minX(), 210)), Qt::magenta);
        p.fillRect(QRectF(QPointF(320 * region_.maxX(), -10), QPointF(330, 210)), Qt::magenta);
        return &image_;
    }
    void setRegionOfInterest(const Rect& unit) override { region_ = unit; }

private:
    QImage image_;
    Rect region_{0, 0, 1, 1};
};

}  // namespace

TEST_F(FrameComposerTest, NothingOutsideTheAnnouncedRegionIsRead) {
    input.settings.motionBlur = true;
    // Zooms towards a corner and the middle, strong enough to leave most of the source unseen.
    input.settings.zooms = {zoomOn(3, {0.95, 0.05}, 1, 4), zoomOn(2, {0.5, 0.5}, 5, 8)};
    FunctionFrames honest([](double) { return checkerFrame(); });
    RegionOnlyFrames partial;
    FrameComposer expected(input, {&honest});
    FrameComposer composer(input, {&partial});
    for (double t : {0.5, 1.1, 2.0, 4.2, 5.2, 6.5, 9.0}) EXPECT_EQ(composer.composeOutputFrame(t), expected.composeOutputFrame(t)) << t;
}

TEST_F(FrameComposerTest, CameraFillsItsRoundBubbleTheRightWayRound) {
    input.settings.webcamShape = WebcamShape::circle;
    FunctionFrames frames([](double) { return solidFrame(Qt::black); });
    FunctionFrames camera([](double) { return splitFrame(); });  // green left half, red right
    FrameComposer composer(input, {&frames}, &camera);
    const QImage frame = composer.composeOutputFrame(2);
    ASSERT_TRUE(composer.statics().webcam);
    const Rect r = composer.statics().webcam->rect;
    EXPECT_GT(pixel(frame, {r.midX() - r.width() * 0.25, r.midY()}).green(), 200);
    EXPECT_LT(pixel(frame, {r.midX() - r.width() * 0.25, r.midY()}).red(), 50);
    EXPECT_GT(pixel(frame, {r.midX() + r.width() * 0.25, r.midY()}).red(), 200);
    // The corner of the bubble's square lies outside the circle: no camera there.
    const QColor corner = pixel(frame, {r.minX() + 2, r.maxY() - 2});
    EXPECT_LT(corner.green(), 150);
    EXPECT_LT(corner.red(), 150);
    // Without camera frames no bubble is drawn.
    FunctionFrames none([](double) { return QImage(); });
    FrameComposer without(input, {&frames}, &none);
    EXPECT_NE(pixel(without.composeOutputFrame(2), {r.midX() - r.width() * 0.25, r.midY()}), QColor(Qt::green));
}
