#include "Media/FrameSequence.h"

#include "Support/HalvaneError.h"
#include "SyntheticMovie.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

class FrameSequenceTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = test::makeScratchDirectory("frame-sequence");
        test::SyntheticMovie movie;
        movie.rampBrightness = true;  // frame i has grey level i % 100
        movie.write(dir / "ramp.mov");
    }
    static void TearDownTestSuite() { fs::remove_all(dir); }

    static int level(const QImage* image) { return image ? qBlue(image->pixel(5, 5)) : -1; }

    static fs::path dir;
};
fs::path FrameSequenceTest::dir;

TEST_F(FrameSequenceTest, GivesTheFrameOnScreenAtEachTimeAndHoldsTheLast) {
    FrameSequence frames(dir / "ramp.mov");
    EXPECT_EQ(frames.streamSize(), (Size{160, 90}));
    EXPECT_NEAR(frames.duration(), 6.0, 0.05);
    EXPECT_EQ(frames.image(-0.1), nullptr);
    EXPECT_NEAR(level(frames.image(0)), 0, 3);
    EXPECT_NEAR(level(frames.image(0.5)), 15, 3);
    EXPECT_NEAR(level(frames.image(0.51)), 15, 3);  // between frames: the earlier one
    EXPECT_NEAR(level(frames.image(1.0 - 1e-6)), 29, 3);
    EXPECT_NEAR(level(frames.image(2.0)), 60, 3);
    EXPECT_DOUBLE_EQ(frames.currentTime(), 2.0);
    EXPECT_NEAR(level(frames.image(1.0)), 60, 3);  // going back keeps the current frame
    EXPECT_NEAR(level(frames.image(100)), 79, 3);  // frame 179, the last, holds
    EXPECT_NEAR(frames.currentTime(), 179 / 30.0, 1e-6);
}

TEST_F(FrameSequenceTest, GivesRecordingsPlanesUnconvertedAndTheSamePictureAsBgra) {
    FrameSequence frames(dir / "ramp.mov");
    EXPECT_EQ(frames.planes(-0.1), nullptr);
    for (double t : {0.5, 0.51, 2.0, 100.0}) {
        const Yuv420View* planes = frames.planes(t);
        ASSERT_NE(planes, nullptr) << t;
        EXPECT_EQ(planes->width, 160);
        EXPECT_EQ(planes->height, 90);
        // Grey: limited-range luma of the BGRA picture's level, no colour.
        const int grey = level(frames.image(t));
        EXPECT_NEAR(planes->planes[0][5 * planes->strides[0] + 5], 16 + grey * 219 / 255, 2) << t;
        EXPECT_NEAR(planes->planes[1][2 * planes->strides[1] + 2], 128, 2) << t;
    }
}

TEST_F(FrameSequenceTest, AskingAtEachFrameNumberOverTheRateGivesThatFrame) {
    // How every export asks: frame n at n / fps, which rounds differently from pts × time base.
    FrameSequence frames(dir / "ramp.mov");
    for (int i = 0; i < 180; ++i) {
        ASSERT_NE(frames.image(i / 30.0), nullptr);
        ASSERT_NEAR(frames.currentTime(), i / 30.0, 1e-6) << "frame " << i;
    }
}

TEST_F(FrameSequenceTest, StartsAtTheTrimWithoutDecodingFromTheTopAndStopsAfterTheEnd) {
    FrameSequence frames(dir / "ramp.mov", 3.0, 4.0);
    auto* first = frames.image(3.0);
    ASSERT_NE(first, nullptr);
    EXPECT_NEAR(level(first), 90, 3);
    EXPECT_DOUBLE_EQ(frames.currentTime(), 3.0);
    EXPECT_NEAR(level(frames.image(5.5)), 20, 3);  // frame 120 at 4.0 s holds after `until`
}

TEST_F(FrameSequenceTest, ScalesToTheAskedSize) {
    FrameSequence frames(dir / "ramp.mov", 0, 1, Size{80, 44});
    auto* image = frames.image(0.2);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->width(), 80);
    EXPECT_EQ(image->height(), 44);
    EXPECT_EQ(image->format(), QImage::Format_ARGB32_Premultiplied);
}

TEST_F(FrameSequenceTest, HonoursTheStreamsRangeAndMatrix) {
    // A full-range BT.601 file from ffmpeg itself: read as limited range, light grey would clip to
    // white; read with the wrong matrix, pure red would gain green.
    auto path = dir / "full.mp4";
    int status = 0;
    test::runCommand("ffmpeg -v error -y -f lavfi -i color=c=0xF0F0F0:s=64x32:d=0.2,"
                     "drawbox=x=32:y=0:w=32:h=32:c=0xFF0000:t=fill -pix_fmt yuvj420p "
                     "-color_range pc -colorspace bt470bg -c:v libx264 -qp 0 " +
                         path.string() + " 2>&1",
                     &status);
    ASSERT_EQ(status, 0);
    FrameSequence frames(path);
    // Full range in another matrix is not what the planar composition takes: only BGRA is given.
    EXPECT_EQ(frames.planes(0), nullptr);
    auto* image = frames.image(0);
    ASSERT_NE(image, nullptr);
    QRgb grey = image->pixel(8, 16);
    EXPECT_NEAR(qRed(grey), 240, 4);
    EXPECT_NEAR(qGreen(grey), 240, 4);
    QRgb red = image->pixel(48, 16);
    EXPECT_GT(qRed(red), 240);
    EXPECT_LT(qGreen(red), 12);
    EXPECT_LT(qBlue(red), 12);
}

TEST_F(FrameSequenceTest, ConvertsOnlyTheAskedRegionAndThatExactly) {
    // A moving test pattern whose width is no multiple of 16, so regions meet the right edge unevenly.
    auto path = dir / "pattern.mp4";
    int status = 0;
    test::runCommand("ffmpeg -v error -y -f lavfi -i testsrc2=s=330x186:d=1:r=30 -pix_fmt yuv420p -c:v libx264 "
                     "-qp 0 " + path.string() + " 2>&1",
                     &status);
    ASSERT_EQ(status, 0);
    FrameSequence whole(path), part(path);
    // A region inside, one reaching the bottom-right corner, and a change of region on one frame.
    const std::vector<std::pair<double, Rect>> asks{{0.1, {0.31, 0.22, 0.4, 0.37}},
                                                    {0.4, {0.55, 0.6, 0.45, 0.4}},
                                                    {0.4, {0.0, 0.0, 0.2, 0.9}},
                                                    {0.8, {0.5, 0.5, 0.01, 0.01}}};
    for (const auto& [t, region] : asks) {
        part.setRegion(region);
        const QImage* expected = whole.image(t);
        const QImage* got = part.image(t);
        ASSERT_TRUE(expected && got);
        ASSERT_EQ(got->size(), expected->size());
        const QRect pixels = QRectF(region.minX() * 330, region.minY() * 186, region.width() * 330,
                                    region.height() * 186).toAlignedRect().intersected(got->rect());
        int differing = 0;
        for (int y = pixels.top(); y <= pixels.bottom(); ++y)
            for (int x = pixels.left(); x <= pixels.right(); ++x) differing += got->pixel(x, y) != expected->pixel(x, y);
        EXPECT_EQ(differing, 0) << t << " " << region.minX();
    }

    // Outside the region the picture keeps the frame converted before.
    FrameSequence ramp(dir / "ramp.mov");
    EXPECT_NEAR(level(ramp.image(1.0 / 30)), 1, 1);
    ramp.setRegion({0.1, 0.1, 0.2, 0.2});
    const QImage* later = ramp.image(10.0 / 30);
    EXPECT_NEAR(qBlue(later->pixel(40, 20)), 10, 1);
    EXPECT_NEAR(qBlue(later->pixel(150, 85)), 1, 1);
    ramp.setRegion({});
    EXPECT_NEAR(qBlue(ramp.image(10.0 / 30)->pixel(150, 85)), 10, 1);  // the whole picture again
}

TEST_F(FrameSequenceTest, RefusesFilesWithoutUsableVideo) {
    auto soundOnly = dir / "sound.m4a";
    int status = 0;
    test::runCommand("ffmpeg -v error -y -f lavfi -i sine=d=0.3 " + soundOnly.string() + " 2>&1",
                     &status);
    ASSERT_EQ(status, 0);
    try {
        FrameSequence frames(soundOnly);
        FAIL();
    } catch (const HalvaneError& e) {
        EXPECT_STREQ(e.what(), "no video track in recording");
    }

    auto corrupt = dir / "corrupt.mov";
    std::ofstream(corrupt) << std::string(4096, '\x5a');
    try {
        FrameSequence frames(corrupt);
        FAIL();
    } catch (const HalvaneError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("cannot read video track", 0), 0u) << e.what();
    }
    EXPECT_THROW(FrameSequence(dir / "absent.mov"), HalvaneError);
}

}  // namespace
