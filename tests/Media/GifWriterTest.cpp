#include "Media/GifWriter.h"

#include "Support/HalvaneError.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <numeric>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

class GifWriterTest : public ::testing::Test {
protected:
    void SetUp() override { dir = test::makeScratchDirectory("gif-writer"); }
    void TearDown() override { fs::remove_all(dir); }

    // A bar that moves across a gradient, so frames differ and the palette has work to do.
    static std::vector<uint8_t> frame(int width, int height, int index) {
        std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
                bool bar = x / 8 == index % (width / 8);
                p[0] = bar ? 20 : static_cast<uint8_t>(x * 255 / width);
                p[1] = bar ? 200 : static_cast<uint8_t>(y * 255 / height);
                p[2] = bar ? 240 : 90;
                p[3] = 255;
            }
        return pixels;
    }

    fs::path dir;
};

TEST_F(GifWriterTest, SpreadsDelaysInHundredthsSoTheyAddUpToTheFrameTimes) {
    EXPECT_EQ(GifWriter::frameDelay(0, 20), 5);
    EXPECT_EQ(GifWriter::frameDelay(7, 10), 10);
    int sum = 0;
    for (int i = 0; i < 15; ++i) sum += GifWriter::frameDelay(i, 15);
    EXPECT_EQ(sum, 100);  // 6.67 cs a frame: 7, 6, 7 ... and one second in all
}

TEST_F(GifWriterTest, WritesALoopingGifWithTheFrameDelays) {
    auto path = dir / "out.gif";
    {
        GifWriter writer(path, GifWriterSettings{96, 64, 20});
        for (int i = 0; i < 12; ++i) {
            auto pixels = frame(96, 64, i);
            writer.appendFrame(pixels.data(), 96 * 4);
        }
        writer.finish();
    }
    auto probe = test::probeMedia(path);
    auto* video = test::probeStream(probe, "video");
    ASSERT_NE(video, nullptr);
    EXPECT_EQ((*video)["codec_name"], "gif");
    EXPECT_EQ((*video)["width"], 96);
    EXPECT_EQ((*video)["height"], 64);
    EXPECT_EQ((*video)["nb_read_frames"], "12");
    EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), 0.6, 0.011);

    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    // The Netscape extension with a loop count of 0: for ever.
    auto netscape = bytes.find("NETSCAPE2.0");
    ASSERT_NE(netscape, std::string::npos);
    EXPECT_EQ(bytes[netscape + 11], 3);
    EXPECT_EQ(bytes[netscape + 12], 1);
    EXPECT_EQ(bytes[netscape + 13], 0);
    EXPECT_EQ(bytes[netscape + 14], 0);
    // Every graphic control extension carries a delay of 5 hundredths.
    int controls = 0;
    for (size_t at = bytes.find("\x21\xF9\x04"); at != std::string::npos;
         at = bytes.find("\x21\xF9\x04", at + 1)) {
        int delay = static_cast<uint8_t>(bytes[at + 4]) | static_cast<uint8_t>(bytes[at + 5]) << 8;
        EXPECT_EQ(delay, 5);
        ++controls;
    }
    EXPECT_EQ(controls, 12);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
}

TEST_F(GifWriterTest, KeepsColoursCloseThroughThePalette) {
    auto path = dir / "colours.gif";
    auto pixels = frame(96, 64, 3);
    {
        GifWriter writer(path, GifWriterSettings{96, 64, 10});
        writer.appendFrame(pixels.data(), 96 * 4);
        writer.finish();
    }
    auto decoded = test::runCommand("ffmpeg -v error -i " + path.string() +
                                    " -frames:v 1 -pix_fmt bgra -f rawvideo - 2>/dev/null");
    ASSERT_EQ(decoded.size(), pixels.size());
    double error = 0;
    for (size_t i = 0; i < pixels.size(); i += 4)
        for (int c = 0; c < 3; ++c)
            error += std::abs(int(static_cast<uint8_t>(decoded[i + c])) - int(pixels[i + c]));
    EXPECT_LT(error / (pixels.size() / 4 * 3), 6.0);
}

TEST_F(GifWriterTest, CancelOrFailureLeavesNoFile) {
    {
        GifWriter writer(dir / "a.gif", GifWriterSettings{32, 32, 20});
        auto pixels = frame(32, 32, 0);
        writer.appendFrame(pixels.data(), 128);
        writer.cancel();
    }
    {
        GifWriter writer(dir / "b.gif", GifWriterSettings{32, 32, 20});
        auto pixels = frame(32, 32, 0);
        writer.appendFrame(pixels.data(), 128);
    }
    {
        GifWriter writer(dir / "c.gif", GifWriterSettings{32, 32, 20});
        EXPECT_THROW(writer.finish(), HalvaneError);  // nothing to write
    }
    EXPECT_TRUE(fs::is_empty(dir));
    try {
        GifWriter writer(dir / "no" / "d.gif", GifWriterSettings{32, 32, 20});
        FAIL();
    } catch (const HalvaneError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("could not create GIF file", 0), 0u);
    }
}

}  // namespace
