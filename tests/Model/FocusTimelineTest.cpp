#include "Model/FocusTimeline.h"
#include "Model/WindowPointerMap.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

FocusSegment focus(double start, int source) { return {Uuid::random(), start, source}; }

}  // namespace

TEST(FocusTimelineGenerate, SwitchesFromSamples) {
    // Source 0 at the start adds nothing; a bounce back within 0.8 s undoes the switch.
    EXPECT_TRUE(FocusTimeline::generate({{0, 0}, {5, 1}, {5.5, 0}}, 3, {}).empty());
    auto one = FocusTimeline::generate({{5, 1}, {5.5, 2}}, 3, {});
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].source, 2);
    EXPECT_DOUBLE_EQ(one[0].start, 3.15);
    EXPECT_DOUBLE_EQ(FocusTimeline::generate({{1, 1}}, 2, {})[0].start, 0);
}

TEST(FocusTimelineGenerate, WaitsForLastPressOnOldSource) {
    std::vector<ClickEvent> clicks{{4.5, 0.5, 0.5, 0, ClickPhase::down, 0}, {4.9, 0.5, 0.5, 0, ClickPhase::up, 0}};
    auto s = FocusTimeline::generate({{5, 1}}, 2, clicks);
    ASSERT_EQ(s.size(), 1u);
    EXPECT_DOUBLE_EQ(s[0].start, 5);
    // The first switch waits for the press; the next keeps 0.8 s from it.
    auto two = FocusTimeline::generate({{5, 1}, {5.81, 0}}, 2, clicks);
    ASSERT_EQ(two.size(), 2u);
    EXPECT_DOUBLE_EQ(two[0].start, 5);
    EXPECT_DOUBLE_EQ(two[1].start, 5.8);
}

TEST(FocusTimeline, SanitizedAndTransition) {
    auto s = FocusTimeline::sanitized({focus(3, 7), focus(2, 1), focus(1, 0)}, 2);
    ASSERT_EQ(s.size(), 2u);
    EXPECT_DOUBLE_EQ(s[0].start, 1);

    auto before = FocusTimeline::transition(1, {focus(2, 2)}, 3);
    EXPECT_EQ(before.from, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(before.to, (std::vector<int>{0, 1, 2}));
    EXPECT_DOUBLE_EQ(before.progress, 1);

    auto during = FocusTimeline::transition(2 + 0.325, {focus(2, 2)}, 3);
    EXPECT_EQ(during.from, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(during.to, (std::vector<int>{2, 0, 1}));
    EXPECT_NEAR(during.progress, 0.5, 1e-12);
    EXPECT_EQ(FocusTimeline::depths({2, 0, 1}, 3), (std::vector<int>{1, 2, 0}));
}

TEST(FocusTimeline, LayoutScalesCardsBehind) {
    const double a = 16.0 / 9;
    auto r = FocusTimeline::layout({0, 1, 2}, {a, a, a}, {1000, 1000}, 0.1);
    ASSERT_EQ(r.size(), 3u);
    // Area 800 × 800 at 100, less 2 steps of 40 in height: 800 × 720 fits 800 × 450.
    EXPECT_EQ(r[0], (Rect{100, 235, 800, 450}));
    EXPECT_NEAR(r[1].width(), 800 * 0.955, 0.25);
    EXPECT_NEAR(r[2].width(), 800 * 0.91, 0.25);
    EXPECT_DOUBLE_EQ(r[1].maxY(), r[0].maxY() + 40);
    EXPECT_DOUBLE_EQ(r[2].maxY(), r[0].maxY() + 80);
    for (const auto& rect : r) EXPECT_DOUBLE_EQ(rect.width() * 4, std::round(rect.width() * 4));

    std::vector<int> order;
    std::vector<double> aspects;
    for (int i = 0; i < 14; ++i) {
        order.push_back(i);
        aspects.push_back(1);
    }
    auto many = FocusTimeline::layout(order, aspects, {2000, 2000}, 0);
    EXPECT_DOUBLE_EQ(many[12].width(), many[13].width());
}

TEST(FocusTimeline, PlacementsSwapStackMidway) {
    const std::vector<double> aspects{1.5, 1.5};
    auto early = FocusTimeline::placements(2 + 0.1, {focus(2, 1)}, aspects, {1000, 800}, 0.05);
    EXPECT_GT(early[0].z, early[1].z);
    EXPECT_GT(early[1].lift, 0);
    auto late = FocusTimeline::placements(2 + 0.4, {focus(2, 1)}, aspects, {1000, 800}, 0.05);
    EXPECT_GT(late[1].z, late[0].z);
    EXPECT_DOUBLE_EQ(late[1].lift, 0);
    auto done = FocusTimeline::placements(5, {focus(2, 1)}, aspects, {1000, 800}, 0.05);
    EXPECT_DOUBLE_EQ(done[0].dim, 0.14);
    EXPECT_DOUBLE_EQ(done[1].dim, 0);
    // Switching to the source already in front moves nothing.
    auto same = FocusTimeline::placements(2.2, {focus(2, 0)}, aspects, {1000, 800}, 0.05);
    auto rest = FocusTimeline::placements(1, {}, aspects, {1000, 800}, 0.05);
    EXPECT_EQ(same, rest);
}

TEST(WindowPointerMap, HitsFrontFrameFirst) {
    RecordingMeta meta;
    meta.sources = {RecordingSource{}, RecordingSource{}};
    RecordedEvents events;
    EXPECT_FALSE(WindowPointerMap::make(meta, events));
    events.pointerSpace = Rect{0, 0, 1000, 1000};
    events.windowFrames = {{{0, Rect{0, 0, 600, 600}}}, {{0, Rect{400, 400, 600, 600}}, {5, Rect{0, 0, 1, 1}}}};
    events.focus = {{2, 1}};
    auto map = WindowPointerMap::make(meta, events);
    ASSERT_TRUE(map);
    // Before the focus change source 0 is in front.
    auto h = map->hit(1, {0.5, 0.5});
    ASSERT_TRUE(h);
    EXPECT_EQ(h->source, 0);
    EXPECT_NEAR(h->point.x, 500.0 / 600, 1e-12);
    // After it, source 1 wins the overlap.
    h = map->hit(3, {0.5, 0.5});
    ASSERT_TRUE(h);
    EXPECT_EQ(h->source, 1);
    EXPECT_NEAR(h->point.x, 100.0 / 600, 1e-12);
    EXPECT_FALSE(map->hit(3, {0.99, 0.1}));
    // From 5 on the frame of source 1 is 1 × 1 and never hits.
    h = map->hit(6, {0.5, 0.5});
    ASSERT_TRUE(h);
    EXPECT_EQ(h->source, 0);
}
