#include "Model/EditSettings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace halvane;

namespace {

CutSegment cut(double s, double e) { return {Uuid::random(), s, e}; }

std::vector<ClipSegment> clips(const EditSettings& s, double duration = 10) { return s.clipTimeline(duration).segments; }

}  // namespace

TEST(ClipTimeline, DerivesClipsFromTrimCutsAndSplits) {
    EditSettings s;
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 10}}));

    s.clipSplits = {5.0};
    s.cuts = {cut(4, 6)};
    // The split inside the cut has no effect and stays stored.
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 4}, {6, 10}}));
    EXPECT_EQ(s.clipSplits.size(), 1u);

    s.cuts = {};
    s.clipSplits = {5.0, 5.0000005, std::numeric_limits<double>::quiet_NaN()};
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 5}, {5, 10}}));
}

TEST(ClipTimeline, SplitRespectsMinimumDuration) {
    EditSettings s;
    EXPECT_FALSE(s.splitClip(0, 10, 0.1));  // a clip's exact start
    EXPECT_FALSE(s.splitClip(std::nan(""), 10, 0.1));
    EXPECT_FALSE(s.splitClip(0.9, 10, 1));
    EXPECT_TRUE(s.splitClip(1.0, 10, 1));
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 1}, {1, 10}}));
}

TEST(ClipTimeline, DeleteWritesAndMergesCuts) {
    EditSettings s;
    s.clipSplits = {3.0, 6.0};
    EXPECT_TRUE(s.deleteClip({3, 6}, 10));
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 3}, {6, 10}}));
    ASSERT_EQ(s.cuts.size(), 1u);
    const Uuid first = s.cuts[0].id;

    // Deleting the clip beside that cut merges both into the one cut with the old id.
    EXPECT_TRUE(s.deleteClip({6, 10}, 10));
    ASSERT_EQ(s.cuts.size(), 1u);
    EXPECT_EQ(s.cuts[0].id, first);
    EXPECT_DOUBLE_EQ(s.cuts[0].end, 10);

    // The last clip can't go.
    EXPECT_FALSE(s.canDeleteClip({0, 3}, 10));
    EXPECT_FALSE(s.deleteClip({0, 3}, 10));
}

TEST(ClipTimeline, TrimLimitsComeFromNeighboursAndSplits) {
    EditSettings s;
    s.clipSplits = {3.0, 6.0};
    auto segs = clips(s);
    auto trim = ClipTrim::make({3, 6}, segs, s.clipSplits.get(), {0, 10}, s.cuts.get());
    ASSERT_TRUE(trim);
    EXPECT_EQ(trim->limits, (TimeRange{3, 6}));
    EXPECT_EQ(trim->adjoiningBoundaries, (std::vector<double>{3, 6}));
    EXPECT_FALSE(ClipTrim::make({3, 5}, segs, s.clipSplits.get(), {0, 10}, s.cuts.get()));
}

TEST(ClipTimeline, ShrinkingWritesCutsAndGrowingTakesThemBack) {
    EditSettings s;
    s.clipSplits = {3.0, 6.0};
    auto trim = ClipTrim::make({3, 6}, clips(s), s.clipSplits.get(), {0, 10}, s.cuts.get());
    ASSERT_TRUE(trim);

    s.trimClip(*trim, trim->resized(4, 5, 0.1));
    ASSERT_EQ(s.cuts.size(), 2u);
    EXPECT_DOUBLE_EQ(s.cuts[0].start, 3);
    EXPECT_DOUBLE_EQ(s.cuts[0].end, 4);
    EXPECT_DOUBLE_EQ(s.cuts[1].start, 5);
    EXPECT_EQ(clips(s), (std::vector<ClipSegment>{{0, 3}, {4, 5}, {6, 10}}));

    // Dragging back to where the gesture began restores the original cuts.
    s.trimClip(*trim, {3, 6});
    EXPECT_TRUE(s.cuts.empty());
}

TEST(ClipTimeline, GrowingOverAnOldCutKeepsItsOutsidePart) {
    EditSettings s;
    s.cuts = {cut(2, 8)};
    s.clipSplits = {5.0};
    // Clips 0-2 and 8-10; the split inside the cut gives the first clip an upper limit of 5.
    auto segs = clips(s);
    ASSERT_EQ(segs, (std::vector<ClipSegment>{{0, 2}, {8, 10}}));
    auto trim = ClipTrim::make({0, 2}, segs, s.clipSplits.get(), {0, 10}, s.cuts.get());
    ASSERT_TRUE(trim);
    EXPECT_EQ(trim->limits, (TimeRange{0, 5}));
    const Uuid id = s.cuts[0].id;
    s.trimClip(*trim, trim->resized(0, 5, 0.1));
    ASSERT_EQ(s.cuts.size(), 1u);
    EXPECT_EQ(s.cuts[0].id, id);
    EXPECT_DOUBLE_EQ(s.cuts[0].start, 5);
    EXPECT_DOUBLE_EQ(s.cuts[0].end, 8);
}

TEST(ClipTimeline, ResizedHoldsToLimitsAndMinimum) {
    ClipTrim trim;
    trim.segment = {2, 4};
    trim.limits = {1, 6};
    // start above end: the minimum length inside the limits.
    EXPECT_EQ(trim.resized(5, 3, 0.5), (ClipSegment{2.5, 3}));
    EXPECT_EQ(trim.resized(std::numeric_limits<double>::infinity(), 5, 0.5), (ClipSegment{2, 5}));
    EXPECT_EQ(trim.resized(std::nan(""), 5, 0.5), (ClipSegment{2, 5}));
    EXPECT_EQ(trim.resized(0, 100, 0.5), (ClipSegment{1, 6}));
    // A clip shorter than the minimum keeps no less than its own length.
    EXPECT_EQ(trim.resized(3, 3.5, 5), (ClipSegment{1.5, 3.5}));
}
