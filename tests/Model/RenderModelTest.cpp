#include "Model/RenderModel.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

RecordingMeta displayMeta(double duration = 20) {
    RecordingMeta m;
    m.duration = duration;
    m.mode = "display";
    m.version = 1;
    return m;
}

RecordedEvents stillPointer(Point p, double duration = 20) {
    RecordedEvents e;
    for (double t = 0; t <= duration; t += 1) e.samples.push_back({t, p.x, p.y});
    return e;
}

ZoomSegment zoom(double s, double e, bool isAuto, Point target = {0.5, 0.5}) {
    ZoomSegment z;
    z.start = s;
    z.end = e;
    z.level = 2;
    z.target = target;
    z.isAuto = isAuto;
    return z;
}

void addClick(RecordedEvents& e, double down, double up, int button = 0) {
    e.clicks.push_back({down, 0.5, 0.5, button, ClickPhase::down, std::nullopt});
    e.clicks.push_back({up, 0.5, 0.5, button, ClickPhase::up, std::nullopt});
}

}  // namespace

TEST(RenderModel, ZoomRectAndActiveZooms) {
    EditSettings s;
    RenderModel plain(displayMeta(), stillPointer({0.5, 0.5}), s);
    EXPECT_EQ(plain.state(5, s).zoomRect, (Rect{0, 0, 1, 1}));

    s.zooms = {zoom(2, 6, true), zoom(8, 12, true), zoom(14, 18, false)};
    s.autoZoom = false;
    RenderModel model(displayMeta(), stillPointer({0.5, 0.5}), s);
    ASSERT_EQ(model.effectiveZooms().size(), 1u);
    EXPECT_EQ(model.state(4, s).zoomRect, (Rect{0, 0, 1, 1}));
    EXPECT_EQ(model.state(16, s).zoomRect, (Rect{0.25, 0.25, 0.5, 0.5}));
    s.autoZoom = true;
    model.rebuildZooms(s);
    EXPECT_EQ(model.effectiveZooms().size(), 3u);
}

TEST(RenderModel, SmoothnessThreshold) {
    EditSettings s;
    s.zooms = {zoom(2, 6, false)};
    RenderModel model(displayMeta(), stillPointer({0.5, 0.5}), s);
    const auto* before = model.cursorTimeline().points().data();
    s.cursorSmoothness += 0.0005;
    s.zooms = {};
    model.rebuildCursorIfNeeded(s);
    EXPECT_EQ(model.cursorTimeline().points().data(), before);
    EXPECT_EQ(model.effectiveZooms().size(), 1u);
    s.cursorSmoothness += 0.0015;
    model.rebuildCursorIfNeeded(s);
    EXPECT_TRUE(model.effectiveZooms().empty());
}

TEST(RenderModel, CursorInCropAndVisibility) {
    EditSettings s;
    s.sourceCrop = Rect{0, 0, 0.5, 0.5};
    // 0.515 / 0.5 = 1.03: outside the cropped frame.
    RenderModel outside(displayMeta(), stillPointer({0.515, 0.25}), s);
    EXPECT_FALSE(outside.state(5, s).cursor);
    RenderModel inside(displayMeta(), stillPointer({0.505, 0.25}), s);
    auto st = inside.state(5, s);
    ASSERT_TRUE(st.cursor);
    EXPECT_NEAR(st.cursor->x, 1.01, 1e-9);

    RecordingMeta windows = displayMeta();
    windows.mode = "windows";
    auto events = stillPointer({0.5, 0.5});
    addClick(events, 5, 5.05);
    EditSettings plain;
    RenderModel old(windows, events, plain);
    auto oldState = old.state(5.1, plain);
    EXPECT_FALSE(oldState.cursor);
    EXPECT_TRUE(oldState.ripples.empty());
}

TEST(RenderModel, ShowCursorOffDropsRipplesButNotKeystrokes) {
    auto events = stillPointer({0.5, 0.5});
    addClick(events, 5, 5.05);
    events.keys = {{5, "c", modifierCommand}};
    EditSettings s;
    s.showCursor = false;
    RenderModel model(displayMeta(), events, s);
    auto st = model.state(5.1, s);
    EXPECT_FALSE(st.cursor);
    EXPECT_TRUE(st.ripples.empty());
    ASSERT_TRUE(st.keystroke);
    EXPECT_EQ(st.keystroke->text, "⌘C");
}

TEST(RenderModel, AutoHideAndShapeRules) {
    auto events = stillPointer({0.5, 0.5});
    events.samples[1].x = 0.6;  // activity at 1 s only
    events.shapes = {{0, CursorShape::iBeam}};
    EditSettings s;
    s.cursorAutoHide = true;
    RenderModel model(displayMeta(), events, s);
    auto hidden = model.state(10, s);
    EXPECT_FALSE(hidden.cursor);
    EXPECT_DOUBLE_EQ(hidden.cursorAlpha, 0);
    auto shown = model.state(2, s);
    ASSERT_TRUE(shown.cursor);
    EXPECT_EQ(shown.cursorShape, CursorShape::iBeam);
    s.cursorStyle = CursorStyle::dot;
    EXPECT_EQ(model.state(2, s).cursorShape, CursorShape::arrow);
}

TEST(RenderModel, RippleProgress) {
    auto events = stillPointer({0.5, 0.5});
    addClick(events, 5, 6);        // held for one second
    addClick(events, 10, 10.05);   // a quick click
    addClick(events, 14, 14.1, 1);  // right button
    EditSettings s;
    RenderModel model(displayMeta(), events, s);
    auto progress = [&](double t) { return model.state(t, s).ripples.at(0).progress; };
    EXPECT_NEAR(progress(5.25), 0.25 / 0.6, 1e-12);
    EXPECT_DOUBLE_EQ(progress(5.9), 0.5);
    EXPECT_NEAR(progress(6.1), 0.4 / 0.6, 1e-12);
    EXPECT_TRUE(model.state(6.31, s).ripples.empty());
    EXPECT_NEAR(progress(10.35), 0.35 / 0.6, 1e-12);
    EXPECT_FALSE(model.state(10.59, s).ripples.empty());
    EXPECT_TRUE(model.state(10.61, s).ripples.empty());
    EXPECT_TRUE(model.state(14.05, s).ripples.at(0).isRight);
    EXPECT_EQ(model.state(5.5, s).ripples.at(0).center, (Point{0.5, 0.5}));
    s.clickEffect = ClickEffect::none;
    EXPECT_TRUE(model.state(5.5, s).ripples.empty());
}

TEST(RenderModel, CursorLoopGlidesBackOverShortTrim) {
    // The pointer moves steadily to the right; smoothness 0 keeps the drawn path close to it.
    RecordedEvents events;
    for (int i = 0; i <= 200; ++i) events.samples.push_back({i * 0.1, i * 0.005, 0.5});
    EditSettings s;
    s.cursorSmoothness = 0;
    s.cursorLoop = true;
    s.trimStart = 10;
    s.trimEnd = 10.5;
    RenderModel model(displayMeta(), events, s);
    const auto& timeline = model.cursorTimeline();
    const double home = timeline.position(10)->x;
    // The trim is shorter than the glide: the blend runs over the whole span.
    EXPECT_NEAR(model.state(10, s).cursor->x, home, 1e-12);
    const double mid = timeline.position(10.25)->x;
    EXPECT_NEAR(model.state(10.25, s).cursor->x, mid + (home - mid) * 0.5, 1e-12);
    EXPECT_NEAR(model.state(10.5, s).cursor->x, home, 1e-12);
    // Without the loop the pointer goes its own way.
    s.cursorLoop = false;
    EXPECT_NEAR(model.state(10.25, s).cursor->x, mid, 1e-12);
    // Over a long trim only the last 0.8 s glide.
    s.cursorLoop = true;
    s.trimStart = 2;
    s.trimEnd = 12;
    EXPECT_NEAR(model.state(11.2, s).cursor->x, timeline.position(11.2)->x, 1e-12);
    EXPECT_NEAR(model.state(12, s).cursor->x, timeline.position(2)->x, 1e-12);
}

TEST(RenderModel, MultiSourceCursorAndZoomRects) {
    RecordingMeta meta = displayMeta();
    meta.mode = "windows";
    meta.version = 2;
    meta.sources = {RecordingSource{}, RecordingSource{}};
    RecordedEvents events = stillPointer({0.75, 0.5});
    events.pointerSpace = Rect{0, 0, 1000, 500};
    events.windowFrames = {{{0, Rect{0, 0, 500, 500}}}, {{0, Rect{500, 0, 500, 500}}}};
    EditSettings s;
    auto z = zoom(2, 6, false);
    z.source = 1;
    s.zooms = {z};
    s.focusSwitches = {{Uuid::random(), 0, 1}};
    RenderModel model(meta, events, s);
    auto st = model.state(4, s);
    ASSERT_TRUE(st.cursor);
    EXPECT_EQ(st.cursorSource, 1);
    EXPECT_NEAR(st.cursor->x, 0.5, 1e-9);
    ASSERT_EQ(st.sourceZoomRects.size(), 2u);
    EXPECT_EQ(st.sourceZoomRects[0], (Rect{0, 0, 1, 1}));
    EXPECT_LT(st.sourceZoomRects[1].width(), 1);
    EXPECT_EQ(st.zoomRect, (Rect{0, 0, 1, 1}));

    // Over no source: no pointer, and the source stays 0.
    RecordedEvents off = stillPointer({0.5, 1.5});
    off.pointerSpace = events.pointerSpace;
    off.windowFrames = events.windowFrames;
    RenderModel nowhere(meta, off, s);
    auto none = nowhere.state(4, s);
    EXPECT_FALSE(none.cursor);
    EXPECT_EQ(none.cursorSource, 0);
}
