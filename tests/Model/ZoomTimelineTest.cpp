#include "Model/ZoomTimeline.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

ClickEvent down(double t, double x, double y, std::optional<int> source = std::nullopt, int button = 0) {
    return {t, x, y, button, ClickPhase::down, source};
}
ClickEvent up(double t, double x, double y, std::optional<int> source = std::nullopt, int button = 0) {
    return {t, x, y, button, ClickPhase::up, source};
}
std::vector<ClickEvent> click(double t, double x, double y, std::optional<int> source = std::nullopt) {
    return {down(t, x, y, source), up(t, x, y, source)};
}
std::vector<ClickEvent> join(std::vector<ClickEvent> a, const std::vector<ClickEvent>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
ZoomSegment zoom(double s, double e, double level = 2, Point target = {0.5, 0.5}) {
    ZoomSegment z;
    z.start = s;
    z.end = e;
    z.level = level;
    z.target = target;
    return z;
}
FocusSegment focus(double start, int source) { return {Uuid::random(), start, source}; }

}  // namespace

TEST(ZoomTimelinePresses, PairsDownsWithUps) {
    // Two downs without an up: the first is a press of length 0.
    auto ps = ZoomTimeline::presses({down(1, 0.5, 0.5), down(2, 0.2, 0.2), up(3, 0.4, 0.2)});
    ASSERT_EQ(ps.size(), 2u);
    EXPECT_DOUBLE_EQ(ps[0].end, 1);
    EXPECT_DOUBLE_EQ(ps[1].end, 3);
    // A drag is placed at its middle.
    EXPECT_DOUBLE_EQ(ps[1].center.x, 0.3);

    // A press of 20 seconds counts for 12.
    ps = ZoomTimeline::presses({down(1, 0.5, 0.5), up(21, 0.5, 0.5)});
    ASSERT_EQ(ps.size(), 1u);
    EXPECT_DOUBLE_EQ(ps[0].end, 13);

    // Right button, and a down outside the edge margin with its up, are not presses.
    EXPECT_TRUE(ZoomTimeline::presses({down(1, 0.5, 0.5, {}, 1), up(1.1, 0.5, 0.5, {}, 1)}).empty());
    EXPECT_TRUE(ZoomTimeline::presses({down(1, 1.01, 0.5), up(1.1, 0.5, 0.5)}).empty());
    EXPECT_EQ(ZoomTimeline::presses({down(1, 1.004, 0.5), up(1.1, 1.004, 0.5)}).size(), 1u);

    // Up from another source keeps the press position.
    ps = ZoomTimeline::presses({down(1, 0.2, 0.2, 0), up(1.5, 0.8, 0.8, 1)});
    ASSERT_EQ(ps.size(), 1u);
    EXPECT_EQ(ps[0].center, (Point{0.2, 0.2}));
}

TEST(ZoomTimelineGenerate, LevelDurationAndTailLimits) {
    auto clicks = click(5, 0.5, 0.5);
    EXPECT_TRUE(ZoomTimeline::generate(clicks, 1.04, 30).empty());
    EXPECT_EQ(ZoomTimeline::generate(clicks, 1.05, 30).size(), 1u);
    EXPECT_TRUE(ZoomTimeline::generate(click(0.1, 0.5, 0.5), 2, 0.4).empty());
    // 0.9 s before the end, inside the tail margin.
    EXPECT_TRUE(ZoomTimeline::generate(click(29.1, 0.5, 0.5), 2, 30).empty());
}

TEST(ZoomTimelineGenerate, OneClickMakesMinimumLengthZoom) {
    auto z = ZoomTimeline::generate(click(5, 0.3, 0.6), 2, 30);
    ASSERT_EQ(z.size(), 1u);
    EXPECT_DOUBLE_EQ(z[0].start, 4.85);
    EXPECT_DOUBLE_EQ(z[0].end, 6.1);
    EXPECT_TRUE(z[0].isAuto);
    EXPECT_FALSE(z[0].source);
    EXPECT_EQ(z[0].target, (Point{0.3, 0.6}));
    EXPECT_DOUBLE_EQ(z[0].level, 2);

    auto early = ZoomTimeline::generate(click(0.05, 0.5, 0.5), 2, 30);
    ASSERT_EQ(early.size(), 1u);
    EXPECT_DOUBLE_EQ(early[0].start, 0);
}

TEST(ZoomTimelineGenerate, GroupingDependsOnDistanceAndGap) {
    // d = 0.25: closeness 1/6, allowed about 2.83 s between presses.
    auto apart = ZoomTimeline::generate(join(click(1, 0.2, 0.2), click(4.5, 0.45, 0.2)), 2, 30);
    ASSERT_EQ(apart.size(), 2u);
    auto together = ZoomTimeline::generate(join(click(1, 0.2, 0.2), click(3.5, 0.45, 0.2)), 2, 30);
    ASSERT_EQ(together.size(), 1u);
    EXPECT_DOUBLE_EQ(together[0].start, 0.85);
    EXPECT_DOUBLE_EQ(together[0].end, 4.5);
    EXPECT_NEAR(together[0].target.x, 0.325, 1e-12);
    // Beyond the cluster radius a press always starts a new group.
    EXPECT_EQ(ZoomTimeline::generate(join(click(1, 0.1, 0.1), click(1.5, 0.9, 0.9)), 2, 30).size(), 1u);
}

TEST(ZoomTimelineGenerate, MergeRules) {
    // Far apart and 0.3 s between zooms: the second moves 0.35 s past the first's end.
    auto moved = ZoomTimeline::generate(join(click(1, 0.1, 0.1), click(2.4, 0.9, 0.9)), 2, 30);
    // First: 0.85..2.1 ; second: 2.25..3.5 overlaps by less than 0.6 and is far: it starts at 2.45.
    ASSERT_EQ(moved.size(), 2u);
    EXPECT_DOUBLE_EQ(moved[0].end, 2.1);
    EXPECT_DOUBLE_EQ(moved[1].start, 2.1 + 0.35);
    EXPECT_DOUBLE_EQ(moved[1].end, 3.5);

    // Overlap by more than 0.6 s merges, whatever the distance; the target is the midpoint.
    auto merged = ZoomTimeline::generate(join(click(1, 0.1, 0.1), click(1.6, 0.9, 0.9)), 2, 30);
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_DOUBLE_EQ(merged[0].end, 2.7);
    EXPECT_NEAR(merged[0].target.x, 0.5, 1e-12);

    // Moved back so far that less than 0.8 s remains: dropped.
    auto dropped = ZoomTimeline::generate(
        {down(1, 0.1, 0.1), up(3, 0.1, 0.1), down(3.3, 0.9, 0.9), up(3.3, 0.9, 0.9)}, 2, 30);
    // First 0.85..4.0, second 3.15..4.55: starts 4.35, 0.2 s left.
    ASSERT_EQ(dropped.size(), 1u);
}

TEST(ZoomTimelineFront, StretchesFollowSwitches) {
    std::vector<FocusSegment> sw{focus(2, 1), focus(3, 1), focus(5, 0)};
    auto s0 = ZoomTimeline::frontStretches(0, sw, 10);
    ASSERT_EQ(s0.size(), 2u);
    EXPECT_EQ(s0[0], (ZoomTimeline::FrontStretch{0, 2.0}));
    EXPECT_EQ(s0[1], (ZoomTimeline::FrontStretch{5, std::nullopt}));
    auto s1 = ZoomTimeline::frontStretches(1, sw, 10);
    ASSERT_EQ(s1.size(), 1u);
    EXPECT_EQ(s1[0], (ZoomTimeline::FrontStretch{2, 5.0}));
    EXPECT_TRUE(ZoomTimeline::frontStretches(1, {}, 10).empty());
    EXPECT_EQ(ZoomTimeline::frontStretches(0, {}, 10).size(), 1u);
}

TEST(ZoomTimelineGenerate, MultiSourcePlacesZoomsInFrontStretches) {
    // Source 1 comes to the front at 4; a click on it at 4.5 can begin no earlier than 1.6 s after.
    auto clicks = join(click(1, 0.5, 0.5, 0), click(4.5, 0.5, 0.5, 1));
    clicks = join(clicks, click(6, 0.5, 0.5, 2));  // source 2 is never in front
    auto z = ZoomTimeline::generate(clicks, 1.75, 30, 3, {focus(4, 1)});
    ASSERT_EQ(z.size(), 2u);
    EXPECT_EQ(z[0].source, 0);
    // Runs out behind the switch: 0.85..2.1 ends more than 1 s before 4, so it stays.
    EXPECT_DOUBLE_EQ(z[0].end, 2.1);
    EXPECT_EQ(z[1].source, 1);
    EXPECT_DOUBLE_EQ(z[1].start, 4 + 0.65 + 1.35 - 0.4);
    EXPECT_NEAR(z[1].end - z[1].start, 1.25, 1e-12);

    // A zoom reaching into the last second before a leave runs to 0.65 past it.
    auto late = ZoomTimeline::generate(click(3, 0.5, 0.5, 0), 1.75, 30, 2, {focus(4.5, 1)});
    ASSERT_EQ(late.size(), 1u);
    EXPECT_DOUBLE_EQ(late[0].end, 4.5 + 0.65);
}

TEST(ZoomTimelineEffective, RampsAndPlacement) {
    auto none = ZoomTimeline::effectiveSegments({zoom(1, 1.15)}, 1, nullptr, {});
    EXPECT_TRUE(none.empty());

    // inEnd 0.6 is below half the ramp: in place at time 0.
    auto atStart = ZoomTimeline::effectiveSegments({zoom(0.2, 5)}, 1, nullptr, {});
    ASSERT_EQ(atStart.size(), 1u);
    EXPECT_DOUBLE_EQ(atStart[0].inEnd, 0);
    EXPECT_DOUBLE_EQ(atStart[0].inStart, -1.35);
    auto ramp = ZoomTimeline::effectiveSegments({zoom(0.3, 5)}, 1, nullptr, {});
    EXPECT_DOUBLE_EQ(ramp[0].inEnd, 0.7);
    EXPECT_DOUBLE_EQ(ramp[0].inStart, 0);
    EXPECT_DOUBLE_EQ(ramp[0].outEnd, 6);

    auto shortZoom = ZoomTimeline::effectiveSegments({zoom(3, 3.2)}, 1, nullptr, {});
    EXPECT_DOUBLE_EQ(shortZoom[0].inEnd, 3.3);
    EXPECT_DOUBLE_EQ(shortZoom[0].outStart, 3.3);

    EXPECT_EQ(ZoomTimeline::peakRect(8, {0.5, 0.5}).size, (Size{1.0 / 6, 1.0 / 6}));
    EXPECT_EQ(ZoomTimeline::peakRect(2, {0.02, 0.98}), (Rect{0, 0.5, 0.5, 0.5}));
    EXPECT_EQ(ZoomTimeline::peakRect(1, {0.3, 0.3}), (Rect{0, 0, 1, 1}));
}

TEST(ZoomTimelineEffective, ZoomStartingInCutBeginsAtCutsOutputMoment) {
    SpeedMap map({}, {0, 20}, {{Uuid::random(), 4, 6}});
    auto segs = ZoomTimeline::effectiveSegments({zoom(5, 10)}, 1, &map, {});
    ASSERT_EQ(segs.size(), 1u);
    EXPECT_DOUBLE_EQ(segs[0].inEnd, 4 + 0.4);
    EXPECT_DOUBLE_EQ(segs[0].outStart, 8);
}

TEST(ZoomTimelineEffective, NeighboursConnect) {
    auto segs = ZoomTimeline::effectiveSegments({zoom(1, 4, 2, {0.2, 0.2}), zoom(5, 8, 2, {0.8, 0.8})}, 1, nullptr, {});
    ASSERT_EQ(segs.size(), 2u);
    // a = 4, b = 5.4, n = 1.4 lies between 0.9 and 1.8: the ramps meet unchanged.
    EXPECT_DOUBLE_EQ(segs[0].outStart, 4);
    EXPECT_DOUBLE_EQ(segs[0].outEnd, 5.4);
    EXPECT_DOUBLE_EQ(segs[1].inStart, 4);
    EXPECT_DOUBLE_EQ(segs[1].inEnd, 5.4);
    // Halfway through the shared ramp the view is between both.
    Rect mid = ZoomTimeline::visibleRect(4.7, segs);
    EXPECT_NEAR(mid.width(), 0.5, 1e-9);
    EXPECT_NEAR(mid.x(), 0.25, 1e-9);

    // Far apart they stay independent.
    auto apart = ZoomTimeline::effectiveSegments({zoom(1, 4), zoom(10, 12)}, 1, nullptr, {});
    EXPECT_DOUBLE_EQ(apart[0].outEnd, 5);
    EXPECT_DOUBLE_EQ(apart[1].inStart, 10.4 - 1.35);

    // A long move is cut to 1.8 s.
    auto longMove = ZoomTimeline::effectiveSegments({zoom(1, 4), zoom(6, 9)}, 1, nullptr, {});
    EXPECT_DOUBLE_EQ(longMove[0].outStart, 6.4 - 1.8);
}

TEST(ZoomTimelineVisible, FullViewAtRampEnds) {
    auto segs = ZoomTimeline::effectiveSegments({zoom(2, 5)}, 1, nullptr, {});
    EXPECT_EQ(ZoomTimeline::visibleRect(segs[0].inStart, segs), (Rect{0, 0, 1, 1}));
    EXPECT_EQ(ZoomTimeline::visibleRect(segs[0].outEnd, segs), (Rect{0, 0, 1, 1}));
    EXPECT_EQ(ZoomTimeline::visibleRect(3.5, segs), (Rect{0.25, 0.25, 0.5, 0.5}));
    EXPECT_EQ(ZoomTimeline::visibleRect(3.5, {}), (Rect{0, 0, 1, 1}));
}

TEST(ZoomTimelineFollow, TrackFollowsPointerOutsideDeadZone) {
    ZoomTimeline::Follow follow = [](double) { return std::optional<Point>(Point{0.9, 0.5}); };
    auto segs = ZoomTimeline::effectiveSegments({zoom(1, 5, 2)}, 1, nullptr, follow);
    ASSERT_EQ(segs.size(), 1u);
    const auto& track = segs[0].followTrack;
    ASSERT_FALSE(track.empty());
    EXPECT_EQ(track.size(), static_cast<size_t>(std::ceil((segs[0].outEnd - segs[0].inStart) * 30)) + 1);
    // Still at the start view during the ramp in; held inside the unit square after.
    EXPECT_EQ(track.front(), (Rect{0.25, 0.25, 0.5, 0.5}));
    EXPECT_GT(track.back().x(), 0.25);
    EXPECT_LE(track.back().maxX(), 1 + 1e-12);
    // First step inside the hold: target 0.9 - 0.125 = 0.775, moved by the low-pass gain.
    size_t k = 0;
    while (segs[0].inStart + static_cast<double>(k) / 30 <= segs[0].inEnd) ++k;
    EXPECT_NEAR(track[k].midX(), 0.5 + (0.775 - 0.5) * 0.11223447479342219, 1e-12);
    // Between two steps the window interpolates the origin.
    double t = segs[0].inStart + (static_cast<double>(k) - 0.5) / 30;
    EXPECT_NEAR(segs[0].window(t).x(), (track[k - 1].x() + track[k].x()) / 2, 1e-12);

    // Inside the dead zone nothing moves and no track is kept.
    ZoomTimeline::Follow still = [](double) { return std::optional<Point>(Point{0.55, 0.5}); };
    EXPECT_TRUE(ZoomTimeline::effectiveSegments({zoom(1, 5, 2)}, 1, nullptr, still)[0].followTrack.empty());
    // Level 1.0005 counts as no zoom for following.
    EXPECT_TRUE(ZoomTimeline::effectiveSegments({zoom(1, 5, 1.0005)}, 1, nullptr, follow)[0].followTrack.empty());
}
