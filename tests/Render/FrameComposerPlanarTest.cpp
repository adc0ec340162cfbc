#include "CompositionSources.h"
#include "Render/FrameComposer.h"
#include "Render/PlanarPicture.h"
#include "support/GuiApplication.h"

#include <gtest/gtest.h>

#include <QPainter>

#include <cmath>

using namespace halvane;
using test::FunctionFrames;
using test::PlanarFunctionFrames;
using test::zoomOn;

namespace {

// A screen-like picture: soft colour gradients with sharp-edged text-like bars, changing with time.
QImage screenFrame(double t) {
    QImage image(320, 200, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 320; ++x)
            image.setPixel(x, y, qRgb(60 + x / 2, 80 + y / 2, int(120 + 100 * std::sin(x * 0.02 + t))));
    QPainter p(&image);
    for (int row = 0; row < 12; ++row) p.fillRect(20 + int(t * 7) % 30, 10 + row * 15, 120 + row * 9, 5, QColor(30, 30, 30));
    return image;
}

// Every layer the export draws: rounded corners, a border, zoom, a pointer with ripples, both mask
// styles, a caption and a shortcut pill.
CompositionInput busyTake() {
    CompositionInput input;
    input.meta = test::smallScreenMeta();
    input.canvasSize = {640, 400};
    input.fps = 30;
    EditSettings& s = input.settings;
    s.background = CanvasBackground::solid("#3050A0");
    s.padding = 0.1;
    s.cornerRadiusFraction = 0.08;
    s.borderStyle = CardBorderStyle::glass;
    s.showCursor = true;
    s.showKeystrokes = true;
    s.captionsEnabled = true;
    s.zooms = {zoomOn(2, {0.4, 0.4}, 3, 7)};
    MaskAnnotation blur;
    blur.start = 0;
    blur.end = 10;
    blur.rect = Rect{0.6, 0.1, 0.25, 0.2};
    MaskAnnotation cells = blur;
    cells.style = MaskStyle::pixelate;
    cells.rect = Rect{0.1, 0.6, 0.2, 0.25};
    s.masks = {blur, cells};
    for (double t = 0; t <= 10; t += 1.0 / 60)
        input.events.samples.push_back({t, 0.5 + 0.3 * std::sin(t), 0.5 + 0.3 * std::cos(t * 1.3)});
    for (double t : {1.0, 4.0, 6.0}) {
        input.events.clicks.push_back({t, 0.5 + 0.3 * std::sin(t), 0.5 + 0.3 * std::cos(t * 1.3), 0, ClickPhase::down, std::nullopt});
        input.events.clicks.push_back({t + 0.1, 0.5 + 0.3 * std::sin(t), 0.5 + 0.3 * std::cos(t * 1.3), 0, ClickPhase::up, std::nullopt});
    }
    input.events.keys.push_back({1.2, "s", modifierCommand});
    input.events.keys.push_back({4.2, "k", modifierCommand});
    input.transcript = test::oneCaption(1, 5);
    return input;
}

struct PlaneDifference {
    int largest = 0;
    double mean = 0;
};

// Differences between two planar pictures, luma (plane 0) or chroma (planes 1 and 2).
PlaneDifference difference(const QImage& a, const QImage& b, bool chroma) {
    const Yuv420View p = planarView(a), q = planarView(b);
    PlaneDifference d;
    long long sum = 0, count = 0;
    for (int plane : chroma ? std::vector<int>{1, 2} : std::vector<int>{0}) {
        const int w = plane ? p.width / 2 : p.width, h = plane ? p.height / 2 : p.height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const int e = std::abs(p.planes[size_t(plane)][y * p.strides[size_t(plane)] + x] -
                                       q.planes[size_t(plane)][y * q.strides[size_t(plane)] + x]);
                d.largest = std::max(d.largest, e);
                sum += e;
                ++count;
            }
    }
    d.mean = double(sum) / double(std::max(count, 1LL));
    return d;
}

class FrameComposerPlanarTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }
};

}  // namespace

TEST_F(FrameComposerPlanarTest, MatchesTheBgraCompositionConvertedWhole) {
    const CompositionInput take = busyTake();
    PlanarFunctionFrames planarSource(screenFrame), bgraSource(screenFrame);
    FrameComposer planar(take, {&planarSource}), bgra(take, {&bgraSource});
    // Unzoomed with a caption, pill and ripple; zooming in; zoomed; after everything has gone.
    for (double t : {1.1, 3.3, 4.15, 5.5, 9.0}) {
        const QImage mine = planar.composeOutputPlanar(t);
        const QImage expected = toPlanarPicture(bgra.composeOutputFrame(t));
        ASSERT_EQ(mine.size(), expected.size());
        // Scaling and blending commute with the step to YUV: luma differs by rounding alone.
        const PlaneDifference luma = difference(mine, expected, false);
        EXPECT_LE(luma.largest, 3) << t;
        EXPECT_LT(luma.mean, 0.3) << t;
        // Chroma is scaled at half size rather than averaged from full size: close, not equal.
        const PlaneDifference chroma = difference(mine, expected, true);
        EXPECT_LE(chroma.largest, 12) << t;
        EXPECT_LT(chroma.mean, 0.6) << t;
    }
}

TEST_F(FrameComposerPlanarTest, ReusedPicturesKeepNothingOfEarlierFramesAndHeldOnesStayIntact) {
    const CompositionInput take = busyTake();
    PlanarFunctionFrames source(screenFrame);
    FrameComposer composer(take, {&source});
    const QImage held = composer.composeOutputPlanar(1.1);  // caption, pill, ripple and pointer
    const QImage heldCopy = held.copy();
    std::vector<QImage> frames;
    for (int i = 0; i < 90; ++i) {
        frames.push_back(composer.composeOutputPlanar(1.2 + i / 30.0));
        if (frames.size() > 3) frames.erase(frames.begin());  // as the export's queue holds them
    }
    EXPECT_EQ(held, heldCopy);
    for (double t : {4.3, 5.2, 8.0}) {
        const QImage reused = composer.composeOutputPlanar(t);
        PlanarFunctionFrames freshSource(screenFrame);
        FrameComposer fresh(take, {&freshSource});
        EXPECT_EQ(reused, fresh.composeOutputPlanar(t)) << t;
    }
}

TEST_F(FrameComposerPlanarTest, SourcesWithoutPlanesAndBlurredFramesAreConvertedWhole) {
    CompositionInput take = busyTake();
    take.settings.motionBlur = true;
    FunctionFrames source(screenFrame), again(screenFrame);
    FrameComposer planar(take, {&source}), bgra(take, {&again});
    for (double t : {1.1, 3.05, 5.5}) EXPECT_EQ(planar.composeOutputPlanar(t), toPlanarPicture(bgra.composeOutputFrame(t))) << t;
    // Before the first frame there is only the plate.
    FunctionFrames nothing([](double) { return QImage(); });
    FrameComposer empty(take, {&nothing});
    EXPECT_EQ(empty.composeOutputPlanar(2), toPlanarPicture(empty.composeOutputFrame(2)));
}
