#include "Capture/Screenshots/ScrollingCaptureStitcher.h"
#include "ScrollingScene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace halvane {
namespace {

using test::PixelRows;
using test::ScrollingScene;
using Tag = ScrollingCaptureStitcher::Outcome::Tag;
using Outcome = ScrollingCaptureStitcher::Outcome;

ScrollingFrame frameOf(const PixelRows& rows, int excluded = 0) {
    auto frame = ScrollingFrame::make(rows.bitmap(), excluded);
    EXPECT_TRUE(frame);
    return *frame;
}

PixelRows rowsOf(const Bitmap& image) {
    PixelRows rows{image.width, 0, {}};
    for (int y = 0; y < image.height; ++y)
        rows.bytes.insert(rows.bytes.end(), image.row(y), image.row(y) + image.width * 4);
    rows.rows = image.height;
    return rows;
}

// The first row where two pictures differ, or -1 when they are equal; a size mismatch is reported
// through the test's own assertions.
int firstDifferentRow(const PixelRows& a, const PixelRows& b) {
    EXPECT_EQ(a.width, b.width);
    for (int y = 0; y < std::min(a.rows, b.rows); ++y)
        if (!std::equal(a.row(y), a.row(y) + a.width * 4, b.row(y))) return y;
    return a.rows == b.rows ? -1 : std::min(a.rows, b.rows);
}

ScrollingCaptureStitcher::Configuration roomy() { return {ScrollingCaptureStitcher::Configuration{}.maxBodyBytes, 120}; }

TEST(ScrollingCaptureStitcher, StitchesAScrolledPageWithHeaderAndFooterOnce) {
    const ScrollingScene scene = test::textScene(480, 2400, 21);
    ScrollingCaptureStitcher stitcher(roomy());
    // Varied steps, down to 70 rows of overlap in a 400-row band.
    const std::vector<int> scrolls{0, 120, 450, 455, 785, 1000, 1300, 1630, 1900, scene.maxScroll()};
    int previous = 0;
    for (std::size_t i = 0; i < scrolls.size(); ++i) {
        const Outcome outcome = stitcher.ingest(frameOf(scene.frameAt(scrolls[i])));
        if (i == 0) {
            EXPECT_EQ(outcome, (Outcome{Tag::matched, 0, scene.viewportRows}));
        } else {
            EXPECT_EQ(outcome.tag, Tag::matched) << "scroll " << scrolls[i];
            EXPECT_EQ(outcome.dy, scrolls[i] - previous) << "scroll " << scrolls[i];
        }
        previous = scrolls[i];
    }
    EXPECT_TRUE(stitcher.headerKnown());
    EXPECT_GE(stitcher.headerRows(), scene.header.rows);
    const auto picture = stitcher.compose();
    ASSERT_TRUE(picture);
    const PixelRows expected = scene.fullPage();
    EXPECT_EQ(picture->height, expected.rows);
    EXPECT_EQ(firstDifferentRow(rowsOf(*picture), expected), -1);
    EXPECT_EQ(stitcher.canvasRows(), expected.rows);
}

// Content whose every row differs from every other, so that no row next to the bars stays the
// same by chance and the header and footer are exactly the bars.
ScrollingScene noiseScene(int width, int contentRows, std::uint32_t seed) {
    ScrollingScene scene = test::textScene(width, contentRows, seed);
    scene.content = test::noiseRows(width, contentRows, seed);
    return scene;
}

TEST(ScrollingCaptureStitcher, ScrollingUpGrowsTheBodyAtItsHead) {
    const ScrollingScene scene = noiseScene(400, 1500, 5);
    ScrollingCaptureStitcher stitcher(roomy());
    for (int scroll : {600, 450, 200, 0}) EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(scroll))).tag, Tag::matched);
    EXPECT_EQ(stitcher.bodyOffset(), -stitcher.headerRows()) << "row 0 of the top frame's body is body row 0";
    for (int scroll : {300, 600, 700}) EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(scroll))).tag, Tag::matched);
    PixelRows expected{scene.width(), 0, {}};
    expected.append(scene.header, 0, scene.header.rows);
    expected.append(scene.content, 0, 700 + scene.visibleRows());
    expected.append(scene.footer, 0, scene.footer.rows);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), expected), -1);
}

TEST(ScrollingCaptureStitcher, EndingAboveTheBodysEndLeavesOutTheFooter) {
    const ScrollingScene scene = noiseScene(400, 1500, 6);
    ScrollingCaptureStitcher stitcher(roomy());
    for (int scroll : {600, 300, 0}) EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(scroll))).tag, Tag::matched);
    // The first frame's footer lies below the body's end, and the last frame's in its middle.
    PixelRows expected{scene.width(), 0, {}};
    expected.append(scene.header, 0, scene.header.rows);
    expected.append(scene.content, 0, 600 + scene.visibleRows());
    EXPECT_EQ(stitcher.canvasRows(), expected.rows);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), expected), -1);
}

TEST(ScrollingCaptureStitcher, TakesBackRowsThatAShadowDarkened) {
    ScrollingScene scene = test::textScene(360, 1600, 8);
    scene.shadowRows = 6;  // the bottom bar shades the content just above it
    ScrollingCaptureStitcher stitcher(roomy());
    for (int scroll : {0, 200, 410, 700, 1000, scene.maxScroll()})
        EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(scroll))).tag, Tag::matched);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), scene.fullPage()), -1);
}

TEST(ScrollingCaptureStitcher, AFrameOfOtherSizeIsLostAndHarmsNothing) {
    const ScrollingScene scene = test::textScene(300, 1200, 9);
    ScrollingCaptureStitcher stitcher(roomy());
    stitcher.ingest(frameOf(scene.frameAt(0)));
    PixelRows narrow = test::textRows(299, scene.viewportRows, 1);
    EXPECT_EQ(stitcher.ingest(frameOf(narrow)), (Outcome{Tag::lost, 0, 0}));
    EXPECT_FALSE(stitcher.headerKnown());
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(250))), (Outcome{Tag::matched, 250, 250}));
    for (int scroll : {550, scene.maxScroll()}) EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(scroll))).tag, Tag::matched);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), scene.fullPage()), -1);
}

TEST(ScrollingCaptureStitcher, UnalignableMovementIsLostAndTheReferenceStays) {
    const ScrollingScene scene = test::textScene(300, 2000, 12);
    ScrollingCaptureStitcher stitcher(roomy());
    stitcher.ingest(frameOf(scene.frameAt(0)));
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(420))).tag, Tag::lost) << "no overlap left";
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(300))), (Outcome{Tag::matched, 300, 300}));
}

// A region with fixed rows around a moving band of `bandRows` rows of noise.
PixelRows bandFrame(int bandRows, int scroll) {
    const PixelRows above = test::noiseRows(64, 100, 1);
    const PixelRows moving = test::noiseRows(64, 200, 2);
    const PixelRows below = test::noiseRows(64, 100 - bandRows, 3);
    PixelRows frame{64, 0, {}};
    frame.append(above, 0, above.rows);
    frame.append(moving, scroll, scroll + bandRows);
    frame.append(below, 0, below.rows);
    return frame;
}

TEST(ScrollingCaptureStitcher, ABandNeedsAtLeast32Rows) {
    ScrollingCaptureStitcher narrow(roomy());
    narrow.ingest(frameOf(bandFrame(31, 0)));
    EXPECT_EQ(narrow.ingest(frameOf(bandFrame(31, 8))), (Outcome{Tag::unchanged, 0, 0}));

    ScrollingCaptureStitcher wide(roomy());
    wide.ingest(frameOf(bandFrame(32, 0)));
    EXPECT_EQ(wide.ingest(frameOf(bandFrame(32, 8))), (Outcome{Tag::matched, 8, 8}));
    EXPECT_EQ(wide.headerRows(), 100);
    EXPECT_EQ(wide.lastBandRows(), 32);
}

TEST(ScrollingCaptureStitcher, NoMovementIsUnchangedAndKeepsTheHeaderOpen) {
    const ScrollingScene scene = test::textScene(300, 1200, 14);
    ScrollingCaptureStitcher stitcher(roomy());
    const PixelRows first = scene.frameAt(100);
    stitcher.ingest(frameOf(first));
    EXPECT_EQ(stitcher.ingest(frameOf(first)), (Outcome{Tag::unchanged, 0, 0})) << "static";
    // A caret blinks in 10 of 470 rows: too many for a static frame, but the band aligns at dy 0.
    PixelRows blinking = first;
    for (int y : {150, 151, 152, 153, 154, 300, 301, 302, 303, 304})
        std::fill_n(blinking.row(y) + 40 * 4, 200 * 4, std::uint8_t(0));
    EXPECT_EQ(stitcher.ingest(frameOf(blinking)), (Outcome{Tag::unchanged, 0, 0}));
    EXPECT_FALSE(stitcher.headerKnown());
    EXPECT_TRUE(stitcher.lastBandRows().has_value());
}

TEST(ScrollingCaptureStitcher, FlatPagesMoveOnlyByTheExpectedOffset) {
    const PixelRows flat = test::solidRows(200, 300, 245, 245, 245);
    ScrollingCaptureStitcher stitcher(roomy());
    stitcher.ingest(frameOf(flat));
    EXPECT_EQ(stitcher.ingest(frameOf(flat)), (Outcome{Tag::unchanged, 0, 0}));
    EXPECT_EQ(stitcher.ingest(frameOf(flat), 100), (Outcome{Tag::trusted, 100, 100}));
    EXPECT_EQ(stitcher.ingest(frameOf(flat), 120), (Outcome{Tag::trusted, 120, 120}));
    EXPECT_EQ(stitcher.ingest(frameOf(flat), 260), (Outcome{Tag::unchanged, 0, 0})) << "more than the band can hold";
    EXPECT_EQ(stitcher.compose()->height, 300 + 100 + 120);
}

// Content too smooth to align on: a gentle gradient, a quarter level a row.
ScrollingScene gradientScene() {
    ScrollingScene scene = test::textScene(240, 900, 3);
    for (int y = 0; y < scene.content.rows; ++y)
        std::fill_n(scene.content.row(y), 240 * 4, std::uint8_t(20 + y / 4));
    return scene;
}

TEST(ScrollingCaptureStitcher, SmoothContentIsTrustedOnlyWhereTheExpectedOffsetFits) {
    const ScrollingScene scene = gradientScene();
    ScrollingCaptureStitcher stitcher(roomy());
    stitcher.ingest(frameOf(scene.frameAt(0)));
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(150))).tag, Tag::lost) << "nothing to align on";
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(150)), 100).tag, Tag::lost) << "rows paired by 100 disagree";
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(150)), 150), (Outcome{Tag::trusted, 150, 150}));
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(300)), 150).tag, Tag::trusted);
    EXPECT_EQ(stitcher.ingest(frameOf(scene.frameAt(500)), 200).tag, Tag::trusted);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), scene.fullPage()), -1);
}

TEST(ScrollingCaptureStitcher, StopsAtTheBodyLimitAndKeepsWhatItHas) {
    const ScrollingScene scene = test::textScene(200, 3000, 17);
    const std::int64_t rowBytes = 200 * 4;
    ScrollingCaptureStitcher stitcher({rowBytes * 1000, 60});
    std::vector<Tag> tags;
    int lastAccepted = 0;
    for (int scroll : {0, 300, 600, 900}) {
        const Outcome outcome = stitcher.ingest(frameOf(scene.frameAt(scroll)));
        tags.push_back(outcome.tag);
        if (outcome.tag == Tag::matched) lastAccepted = scroll;
    }
    EXPECT_EQ(tags, (std::vector<Tag>{Tag::matched, Tag::matched, Tag::matched, Tag::limit}));
    EXPECT_EQ(lastAccepted, 600);
    EXPECT_LE(stitcher.bodyBytes(), rowBytes * 1000);
    PixelRows expected{scene.width(), 0, {}};
    expected.append(scene.header, 0, scene.header.rows);
    expected.append(scene.content, 0, lastAccepted + scene.visibleRows());
    expected.append(scene.footer, 0, scene.footer.rows);
    EXPECT_EQ(firstDifferentRow(rowsOf(*stitcher.compose()), expected), -1);
}

TEST(ScrollingCaptureStitcher, PreviewShowsTheBottomOfThePicture) {
    const ScrollingScene scene = test::textScene(300, 1500, 23);
    ScrollingCaptureStitcher full({ScrollingCaptureStitcher::Configuration{}.maxBodyBytes, 300});
    EXPECT_FALSE(full.previewTail(100)) << "no frame yet";
    for (int scroll : {0, 300, 600}) full.ingest(frameOf(scene.frameAt(scroll)));
    // At full width the preview is exactly the last rows of the picture.
    const PixelRows picture = rowsOf(*full.compose());
    for (int maxRows : {10, 450, 2000}) {
        const auto preview = full.previewTail(maxRows);
        ASSERT_TRUE(preview);
        const int rows = std::min(maxRows, picture.rows);
        PixelRows expected{picture.width, 0, {}};
        expected.append(picture, picture.rows - rows, picture.rows);
        EXPECT_EQ(firstDifferentRow(rowsOf(*preview), expected), -1) << maxRows << " rows";
    }
    EXPECT_FALSE(full.previewTail(0));

    ScrollingCaptureStitcher small({ScrollingCaptureStitcher::Configuration{}.maxBodyBytes, 100});
    for (int scroll : {0, 300}) small.ingest(frameOf(scene.frameAt(scroll)));
    const auto preview = small.previewTail(120);
    ASSERT_TRUE(preview);
    EXPECT_EQ(preview->width, 100);
    EXPECT_EQ(preview->height, 120);
    const auto cached = small.chunks().front().preview;
    small.ingest(frameOf(scene.frameAt(600)));
    small.previewTail(10'000);
    ASSERT_TRUE(small.chunks().front().preview);
    EXPECT_EQ(small.chunks().front().preview->pixels, cached ? cached->pixels : nullptr)
        << "earlier chunks keep their scaled copy";
    EXPECT_EQ(small.previewTail(10'000)->height,
              // Each part is scaled on its own, so sum the parts' rounded heights.
              [&] {
                  int rows = 0;
                  for (const auto& c : small.chunks()) rows += std::max(int(std::lround(c.rows / 3.0)), 1);
                  return rows + int(std::lround(small.headerRows() / 3.0)) +
                         int(std::lround((small.height() - small.footerStart()) / 3.0));
              }());
}

}  // namespace
}  // namespace halvane
