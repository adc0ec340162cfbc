#include "Capture/Screenshots/ScrollingFrame.h"
#include "Capture/Screenshots/ScrollingRowMatch.h"
#include "ScrollingScene.h"

#include <gtest/gtest.h>

#include <random>

namespace halvane {
namespace {

using test::PixelRows;

ScrollingRowSignature signatureOf(const PixelRows& rows, int excluded = 0) {
    return ScrollingRowSignature(rows.bytes.data(), rows.width, rows.rows, excluded);
}

// A signature of `rows` rows whose row r holds `rowValues(r)` in every block.
template <typename F>
ScrollingRowSignature handMade(int rows, int blocks, F rowValues) {
    ScrollingRowSignature s;
    s.rows = rows;
    s.blocks = blocks;
    for (int r = 0; r < rows; ++r)
        for (int b = 0; b < blocks; ++b) s.values.push_back(rowValues(r, b));
    return s;
}

TEST(ScrollingRowSignature, CutsRowsIntoAtMost32Blocks) {
    using Layout = ScrollingRowSignature::Layout;
    EXPECT_EQ(ScrollingRowSignature::layout(300, 30), (Layout{270, 32}));
    EXPECT_EQ(ScrollingRowSignature::layout(100, 0), (Layout{100, 12}));
    EXPECT_EQ(ScrollingRowSignature::layout(5, 0), (Layout{5, 1}));
    EXPECT_EQ(ScrollingRowSignature::layout(300, 200), (Layout{225, 28})) << "at most a quarter is excluded";
    EXPECT_EQ(ScrollingRowSignature::layout(60, -5), (Layout{60, 7}));
    EXPECT_EQ(ScrollingRowSignature::layout(1, 0), (Layout{1, 1}));
}

TEST(ScrollingRowSignature, HoldsTheMeanBrightnessOfEachBlock) {
    PixelRows rows = test::solidRows(16, 2, 10, 200, 30);  // 2 blocks of 8 columns
    // Second row, second block: half the pixels black.
    for (int x = 8; x < 16; x += 2) std::fill_n(rows.row(1) + x * 4, 3, std::uint8_t(0));
    const auto s = signatureOf(rows);
    ASSERT_EQ(s.blocks, 2);
    ASSERT_EQ(s.values.size(), 4u);
    const int full = (200 * 151 + 10 * 77 + 30 * 28) >> 8;  // 124
    EXPECT_EQ(s.values[0], full);
    EXPECT_EQ(s.values[1], full);
    EXPECT_EQ(s.values[2], full);
    EXPECT_EQ(s.values[3], ((200 * 151 + 10 * 77 + 30 * 28) * 4 / 8) >> 8);
}

TEST(ScrollingRowSignature, IgnoresTheExcludedColumns) {
    PixelRows rows = test::noiseRows(300, 20, 7);
    const auto before = signatureOf(rows, 30);
    for (int y = 0; y < rows.rows; ++y) std::fill_n(rows.row(y) + 275 * 4, 25 * 4, std::uint8_t(255));
    EXPECT_EQ(signatureOf(rows, 30), before);
    EXPECT_NE(signatureOf(rows, 20), signatureOf(test::noiseRows(300, 20, 7), 20));
}

TEST(ScrollingFrame, CopiesRowsAndClampsRanges) {
    PixelRows rows = test::noiseRows(8, 10, 3);
    Bitmap padded{8, 10, 40, std::make_shared<const std::vector<std::uint8_t>>(400, 0)};
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(400);
    for (int y = 0; y < 10; ++y) std::copy_n(rows.row(y), 32, bytes->data() + y * 40);
    padded.pixels = bytes;
    const auto frame = ScrollingFrame::make(padded, 0);
    ASSERT_TRUE(frame);
    EXPECT_EQ(*frame->pixels, rows.bytes) << "padding between rows is dropped";
    EXPECT_EQ(frame->rowData(-5, 2), std::vector<std::uint8_t>(rows.row(0), rows.row(2)));
    EXPECT_EQ(frame->rowData(9, 50), std::vector<std::uint8_t>(rows.row(9), rows.row(10)));
    EXPECT_TRUE(frame->rowData(6, 6).empty());
    EXPECT_TRUE(frame->rowData(7, 3).empty());
    EXPECT_FALSE(ScrollingFrame::make(Bitmap{}, 0));
    EXPECT_FALSE(ScrollingFrame::make(Bitmap{8, 11, 32, rows.bitmap().pixels}, 0)) << "buffer too small";
}

TEST(ScrollingRowMatch, SameRowsNeedsMatchingShapesAndSmallDifferences) {
    const auto a = handMade(3, 4, [](int r, int) { return std::uint8_t(100); });
    const auto b = handMade(3, 4, [](int r, int b) { return std::uint8_t(r == 0 ? 102 : r == 1 ? (b < 2 ? 106 : 100) : 103); });
    // Row 0 differs by 2, row 1 by (6 + 6) / 4 = 3, row 2 by 3.
    EXPECT_EQ(ScrollingRowMatch::sameRows(a, b), (std::vector<bool>{true, false, false}));
    EXPECT_TRUE(ScrollingRowMatch::sameRows(a, handMade(4, 4, [](int, int) { return std::uint8_t(100); })).empty());
    EXPECT_TRUE(ScrollingRowMatch::sameRows(a, handMade(3, 2, [](int, int) { return std::uint8_t(100); })).empty());
}

TEST(ScrollingRowMatch, ActivityIsTheMeanChangeBetweenNeighbouringRows) {
    const auto s = handMade(4, 2, [](int r, int) { return std::uint8_t(r == 1 ? 4 : 0); });
    EXPECT_DOUBLE_EQ(ScrollingRowMatch::activity(s, 0, 4), (8.0 + 8.0 + 0.0) / (3 * 2));
    EXPECT_DOUBLE_EQ(ScrollingRowMatch::activity(s, 1, 3), 8.0 / 2);
    EXPECT_DOUBLE_EQ(ScrollingRowMatch::activity(s, -10, 2), 8.0 / 2) << "clamped to the rows";
    EXPECT_DOUBLE_EQ(ScrollingRowMatch::activity(s, 2, 3), 0) << "a single row has no neighbours";
    EXPECT_DOUBLE_EQ(ScrollingRowMatch::activity(s, 3, 1), 0);
}

TEST(ScrollingRowMatch, OverlapScoreNeedsEnoughRowsAndForgivesTheWorstTenth) {
    const auto base = handMade(100, 4, [](int r, int b) { return std::uint8_t((r * 37 + b * 11) % 200); });
    // H = 100 needs 16 overlapping rows: dy 84 leaves 16, dy 85 only 15.
    EXPECT_TRUE(ScrollingRowMatch::overlapScore(base, base, 0, 100, 84));
    EXPECT_FALSE(ScrollingRowMatch::overlapScore(base, base, 0, 100, 85));
    EXPECT_FALSE(ScrollingRowMatch::overlapScore(base, base, 0, 100, -85));

    auto damaged = [&](int badRows) {
        auto s = base;
        for (int r = 0; r < badRows; ++r)
            for (int b = 0; b < 4; ++b) s.values[std::size_t(r * 7 % 100) * 4 + b] ^= 0x80;
        return s;
    };
    EXPECT_DOUBLE_EQ(*ScrollingRowMatch::overlapScore(base, damaged(10), 0, 100, 0), 0) << "10 of 100 rows dropped";
    EXPECT_DOUBLE_EQ(*ScrollingRowMatch::overlapScore(base, damaged(11), 0, 100, 0), 128.0 / 90);

    // H = 400 needs 64 rows.
    const auto tall = handMade(400, 4, [](int r, int b) { return std::uint8_t((r * 37 + b * 11) % 200); });
    EXPECT_TRUE(ScrollingRowMatch::overlapScore(tall, tall, 0, 400, 336));
    EXPECT_FALSE(ScrollingRowMatch::overlapScore(tall, tall, 0, 400, 337));
}

// The rows a region shows of a noise page scrolled by `scroll`, as a signature.
ScrollingRowSignature windowOf(const PixelRows& page, int scroll, int rows) {
    PixelRows view{page.width, 0, {}};
    view.append(page, scroll, scroll + rows);
    return signatureOf(view);
}

TEST(ScrollingRowMatch, EstimatesOffsetsBothWays) {
    const PixelRows page = test::textRows(320, 2000, 11);
    const auto a = windowOf(page, 500, 400);
    for (int step : {1, 37, 200, 330, -1, -90, -330}) {
        const auto b = windowOf(page, 500 + step, 400);
        const auto match = ScrollingRowMatch::estimateOffset(a, b, 0, 400, std::nullopt);
        ASSERT_TRUE(match) << "step " << step;
        EXPECT_EQ(match->dy, step);
        EXPECT_DOUBLE_EQ(match->score, 0);
    }
    EXPECT_TRUE(ScrollingRowMatch::estimateOffset(a, windowOf(page, 500, 400), 0, 400, std::nullopt));
    EXPECT_EQ(ScrollingRowMatch::estimateOffset(a, windowOf(page, 500, 400), 0, 400, std::nullopt)->dy, 0);
    // 380 rows of travel leave too little overlap to confirm any alignment.
    EXPECT_FALSE(ScrollingRowMatch::estimateOffset(a, windowOf(page, 880, 400), 0, 400, std::nullopt));
    EXPECT_FALSE(ScrollingRowMatch::estimateOffset(a, windowOf(page, 600, 399), 0, 399, std::nullopt)) << "shapes differ";
    EXPECT_FALSE(ScrollingRowMatch::estimateOffset(a, windowOf(page, 510, 400), 100, 131, std::nullopt)) << "band under 32 rows";
}

TEST(ScrollingRowMatch, FlatContentGivesNoOffset) {
    const auto flat = handMade(300, 32, [](int, int) { return std::uint8_t(240); });
    EXPECT_FALSE(ScrollingRowMatch::estimateOffset(flat, flat, 0, 300, 50));
}

TEST(ScrollingRowMatch, EqualCandidatesGoToTheExpectedOffsetOrTheSmallestMove) {
    // Content repeating every 40 rows aligns equally well at every multiple of 40.
    std::mt19937 random(5);
    std::vector<std::uint8_t> period(40 * 8);
    for (auto& v : period) v = std::uint8_t(random() % 256);
    const auto repeating = handMade(240, 8, [&](int r, int b) { return period[std::size_t(r % 40) * 8 + b]; });
    auto dy = [&](std::optional<int> expected) {
        return ScrollingRowMatch::estimateOffset(repeating, repeating, 0, 240, expected)->dy;
    };
    EXPECT_EQ(dy(std::nullopt), 0);
    EXPECT_EQ(dy(75), 80);
    EXPECT_EQ(dy(-45), -40);
    EXPECT_EQ(dy(60), 40) << "of two equally near, the first ranked (fewer rows moved) stays";
}

}  // namespace
}  // namespace halvane
