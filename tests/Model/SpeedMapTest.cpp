#include "Model/SpeedMap.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

SpeedSegment speed(double s, double e, double f) { return {Uuid::random(), s, e, f}; }
CutSegment cut(double s, double e) { return {Uuid::random(), s, e}; }

}  // namespace

TEST(SpeedMap, PlainTrimIsIdentity) {
    SpeedMap m({}, {0, 10}, {});
    ASSERT_EQ(m.pieces().size(), 1u);
    EXPECT_DOUBLE_EQ(m.outputTime(4), 4);
    EXPECT_DOUBLE_EQ(m.sourceTime(4), 4);
    EXPECT_DOUBLE_EQ(m.outputDuration(), 10);
}

TEST(SpeedMap, SpeedSegmentShortensOutput) {
    SpeedMap m({speed(2, 4, 2)}, {0, 10}, {});
    ASSERT_EQ(m.pieces().size(), 3u);
    EXPECT_DOUBLE_EQ(m.outputDuration(), 9);
    EXPECT_DOUBLE_EQ(m.outputTime(4), 3);
    EXPECT_DOUBLE_EQ(m.sourceTime(2.5), 3);
    EXPECT_DOUBLE_EQ(m.outputTime(10), 9);
}

TEST(SpeedMap, CutJumpsOverRemovedSource) {
    SpeedMap m({}, {0, 10}, {cut(2, 3)});
    ASSERT_EQ(m.pieces().size(), 2u);
    EXPECT_DOUBLE_EQ(m.pieces()[1].sourceStart, 3);
    EXPECT_DOUBLE_EQ(m.outputTime(2.5), 2);
    // The output moment of a cut belongs to the piece after it.
    EXPECT_DOUBLE_EQ(m.sourceTime(2), 3);
    EXPECT_DOUBLE_EQ(m.outputDuration(), 9);
}

TEST(SpeedMap, FactorsAreHeldToTheirRange) {
    EXPECT_DOUBLE_EQ(SpeedMap({speed(0, 10, 50)}, {0, 10}, {}).outputDuration(), 1);
    EXPECT_DOUBLE_EQ(SpeedMap({speed(0, 1, 0.01)}, {0, 10}, {}).outputDuration(), 19);
}

TEST(SpeedMap, NearbyCutsMergeAndTinyGapsAreDropped) {
    SpeedMap touching({}, {0, 10}, {cut(2, 3), cut(3.0000005, 4)});
    ASSERT_EQ(touching.removedRanges().size(), 1u);
    EXPECT_DOUBLE_EQ(touching.removedRanges()[0].upper, 4);

    SpeedMap gap({}, {0, 10}, {cut(2, 3), cut(3.0005, 4)});
    EXPECT_EQ(gap.removedRanges().size(), 2u);
    ASSERT_EQ(gap.pieces().size(), 2u);
    EXPECT_DOUBLE_EQ(gap.pieces()[1].sourceStart, 4);
}

TEST(SpeedMap, EarlierSpeedSegmentWinsOverlap) {
    SpeedMap m({speed(2, 4, 4), speed(1, 3, 2)}, {0, 10}, {});
    // Sorted: 1..3 at 2, then 2..4 starts at 3 at 4.
    ASSERT_EQ(m.pieces().size(), 4u);
    EXPECT_DOUBLE_EQ(m.pieces()[1].factor, 2);
    EXPECT_DOUBLE_EQ(m.pieces()[2].sourceStart, 3);
    EXPECT_DOUBLE_EQ(m.pieces()[2].factor, 4);
}

TEST(SpeedMap, ShortSpeedSegmentIsIgnored) {
    SpeedMap m({speed(2, 2.005, 4)}, {0, 10}, {});
    EXPECT_EQ(m.pieces().size(), 1u);
}

TEST(SpeedMap, CutOverWholeTrimGivesDegeneratePiece) {
    SpeedMap m({}, {1, 5}, {cut(0, 10)});
    ASSERT_EQ(m.pieces().size(), 1u);
    EXPECT_DOUBLE_EQ(m.outputTime(3), 0);
    EXPECT_DOUBLE_EQ(m.sourceTime(2), 1);
}

TEST(SpeedMap, SpeedSpanningCutKeepsFactorOnBothSides) {
    SpeedMap m({speed(1, 6, 2)}, {0, 10}, {cut(3, 4)});
    ASSERT_EQ(m.pieces().size(), 4u);
    EXPECT_DOUBLE_EQ(m.pieces()[1].factor, 2);
    EXPECT_DOUBLE_EQ(m.pieces()[2].factor, 2);
    EXPECT_DOUBLE_EQ(m.pieces()[2].sourceStart, 4);
    EXPECT_DOUBLE_EQ(m.outputDuration(), 1 + 1 + 1 + 4);
}

TEST(SpeedMap, RoundTripsAcrossCutsAndSpeeds) {
    SpeedMap m({speed(1, 6, 2), speed(7, 8, 0.5)}, {0.5, 9.5}, {cut(3, 4), cut(8.5, 8.7)});
    for (double s = 0.5; s <= 9.5; s += 0.01) {
        // A removed range's start maps to the moment the cut is jumped, which belongs to its end.
        bool removed = false;
        for (const auto& r : m.removedRanges())
            if (s > r.lower - 1e-6 && s < r.upper) removed = true;
        if (removed) continue;
        EXPECT_NEAR(m.sourceTime(m.outputTime(s)), s, 1e-9) << s;
    }
    for (double o = 0; o <= m.outputDuration(); o += 0.01) EXPECT_NEAR(m.outputTime(m.sourceTime(o)), o, 1e-9) << o;
}

TEST(SpeedMap, TrimOffsetsOutputStart) {
    SpeedMap m({}, {2, 6}, {});
    EXPECT_DOUBLE_EQ(m.outputTime(1), 0);
    EXPECT_DOUBLE_EQ(m.outputTime(3), 1);
    EXPECT_DOUBLE_EQ(m.sourceTime(-1), 2);
    EXPECT_DOUBLE_EQ(m.sourceTime(10), 6);
}
