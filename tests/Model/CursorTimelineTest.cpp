#include "Model/CursorTimeline.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

ClickEvent click(double t, ClickPhase phase, int button = 0, double x = 0.5, double y = 0.5) {
    return {t, x, y, button, phase, std::nullopt};
}

RecordedEvents withClicks(std::vector<ClickEvent> clicks) {
    RecordedEvents e;
    e.clicks = std::move(clicks);
    return e;
}

}  // namespace

TEST(CursorTimeline, NoSamplesMeansNoPosition) {
    CursorTimeline c(withClicks({click(1, ClickPhase::down), click(1.1, ClickPhase::up)}), 0.67, 10);
    EXPECT_FALSE(c.position(1));
    EXPECT_EQ(c.shape(5), CursorShape::arrow);
    // Activity follows the clicks alone.
    EXPECT_DOUBLE_EQ(c.activityAlpha(1.05), 1);
    EXPECT_DOUBLE_EQ(c.activityAlpha(1.1 + 2.1), 0);
}

TEST(CursorTimeline, OneSampleEverywhere) {
    RecordedEvents e;
    e.samples = {{2, 0.3, 0.4}};
    CursorTimeline c(e, 0.67, 10);
    EXPECT_EQ(c.position(0), (Point{0.3, 0.4}));
    EXPECT_EQ(c.position(9), (Point{0.3, 0.4}));
}

TEST(CursorTimeline, TableRunsPastLastSampleToSettle) {
    RecordedEvents e;
    e.samples = {{1, 0, 0}, {2, 1, 1}};
    CursorTimeline c(e, 0.67, 10);
    EXPECT_DOUBLE_EQ(c.time(0), 1);
    EXPECT_NEAR(c.time(c.tableCount() - 1), 2.5, 1.0 / 240);
    EXPECT_NEAR(c.time(240), 2, 1e-12);
    // A last sample past the duration ends the table there.
    CursorTimeline shortTake(e, 0.67, 1.5);
    EXPECT_NEAR(shortTake.time(shortTake.tableCount() - 1), 2, 1e-12);
    // Smoothed: lags behind the raw path, then settles on the last sample.
    EXPECT_LT(c.position(1.5)->x, 0.5);
    EXPECT_NEAR(c.position(2.5)->x, 1, 0.05);
}

TEST(CursorTimeline, SubstepsAndSmoothnessClamp) {
    EXPECT_EQ(CursorTimeline::substeps(0), 2);
    EXPECT_EQ(CursorTimeline::substeps(0.67), 1);
    RecordedEvents e;
    e.samples = {{0, 0, 0}, {0.5, 1, 0}, {1, 1, 1}};
    EXPECT_EQ(CursorTimeline(e, 5, 3).points(), CursorTimeline(e, 1, 3).points());
    EXPECT_EQ(CursorTimeline(e, -1, 3).points(), CursorTimeline(e, 0, 3).points());
    // At smoothness 0 the path follows the samples closely.
    EXPECT_NEAR(CursorTimeline(e, 0, 3).position(0.9)->y, 0.8, 0.05);
}

TEST(CursorTimeline, PressRangesAndClickIntervals) {
    // Two left downs at 1 and 2, one up at 3.
    CursorTimeline c(withClicks({click(1, ClickPhase::down), click(2, ClickPhase::down), click(3, ClickPhase::up)}), 0.67, 10);
    ASSERT_EQ(c.pressRanges().size(), 1u);
    EXPECT_EQ(c.pressRanges()[0], (TimeRange{2, 3}));
    ASSERT_EQ(c.clickIntervals().size(), 2u);
    EXPECT_DOUBLE_EQ(c.clickIntervals()[0].releaseTime, 2);
    EXPECT_DOUBLE_EQ(c.clickIntervals()[1].releaseTime, 3);

    // Down and up at the same moment: no press range, an interval released at once.
    CursorTimeline same(withClicks({click(4, ClickPhase::down), click(4, ClickPhase::up)}), 0.67, 10);
    EXPECT_TRUE(same.pressRanges().empty());
    ASSERT_EQ(same.clickIntervals().size(), 1u);
    EXPECT_DOUBLE_EQ(same.clickIntervals()[0].releaseTime, 4);

    // A down never released.
    CursorTimeline open(withClicks({click(8, ClickPhase::down)}), 0.67, 10);
    EXPECT_EQ(open.pressRanges()[0], (TimeRange{8, 10}));
    EXPECT_DOUBLE_EQ(open.clickIntervals()[0].releaseTime, 10);
    CursorTimeline late(withClicks({click(9.99, ClickPhase::down)}), 0.67, 10);
    EXPECT_DOUBLE_EQ(late.pressRanges()[0].upper, 9.99 + 0.05);

    // Buttons are paired separately; intervals are sorted by their down.
    CursorTimeline mixed(withClicks({click(1, ClickPhase::down, 1), click(2, ClickPhase::down), click(2.5, ClickPhase::up),
                                     click(3, ClickPhase::up, 1)}),
                         0.67, 10);
    ASSERT_EQ(mixed.clickIntervals().size(), 2u);
    EXPECT_EQ(mixed.clickIntervals()[0].down.button, 1);
    EXPECT_DOUBLE_EQ(mixed.clickIntervals()[0].releaseTime, 3);
    EXPECT_EQ(mixed.pressRanges().size(), 1u);
}

TEST(CursorTimeline, PressAmountRisesAndReleases) {
    CursorTimeline c(withClicks({click(1, ClickPhase::down), click(1.03, ClickPhase::up)}), 0.67, 10);
    const double x = 0.03 / 0.09;
    EXPECT_NEAR(c.pressAmount(1.03), x * x * (3 - 2 * x), 1e-12);
    EXPECT_NEAR(c.pressAmount(1.03), 0.26, 0.01);
    // After the up the release side takes over.
    const double r = 0.07 / 0.16;
    EXPECT_NEAR(c.pressAmount(1.1), 1 - r * r * (3 - 2 * r), 1e-12);
    EXPECT_DOUBLE_EQ(c.pressAmount(1.03 + 0.21), 0);
    EXPECT_DOUBLE_EQ(c.pressAmount(0.5), 0);
}

TEST(CursorTimeline, ActivityAlphaFades) {
    RecordedEvents e;
    e.samples = {{1, 0.1, 0.1}, {2, 0.5, 0.5}, {20, 0.5, 0.5}, {21, 0.9, 0.9}};
    CursorTimeline c(e, 0.67, 30);
    // Activity at 2 and at 21 (the later sample of each moving pair).
    ASSERT_EQ(c.activityIntervals().size(), 2u);
    EXPECT_DOUBLE_EQ(c.activityAlpha(2), 1);
    EXPECT_DOUBLE_EQ(c.activityAlpha(3.6), 1);
    EXPECT_NEAR(c.activityAlpha(3.825), 0.5, 1e-9);
    EXPECT_DOUBLE_EQ(c.activityAlpha(4.05), 0);
    // Back 0.35 s before the next activity.
    EXPECT_DOUBLE_EQ(c.activityAlpha(21 - 0.35), 0);
    EXPECT_NEAR(c.activityAlpha(21 - 0.175), 0.5, 1e-9);
    EXPECT_DOUBLE_EQ(c.activityAlpha(21), 1);
    // Tiny movements count as none.
    RecordedEvents still;
    still.samples = {{1, 0.5, 0.5}, {2, 0.5003, 0.5}};
    EXPECT_TRUE(CursorTimeline(still, 0.67, 10).activityIntervals().empty());
}

TEST(CursorTimeline, ShapesBySampleTime) {
    RecordedEvents e;
    e.shapes = {{3, CursorShape::iBeam}, {1, CursorShape::pointingHand}};
    CursorTimeline c(e, 0.67, 10);
    EXPECT_EQ(c.shape(0.5), CursorShape::arrow);
    EXPECT_EQ(c.shape(1), CursorShape::pointingHand);
    EXPECT_EQ(c.shape(3.5), CursorShape::iBeam);
}
