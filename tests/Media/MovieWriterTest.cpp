#include "Media/MovieWriter.h"

#include "Media/FrameSequence.h"
#include "Render/PlanarPicture.h"

#include "Support/HalvaneError.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <thread>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

// A frame whose brightness encodes its index, so dropped or reordered frames would show.
std::vector<uint8_t> bgraFrame(int width, int height, uint8_t level) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = pixels[i + 1] = pixels[i + 2] = level;
        pixels[i + 3] = 255;
    }
    return pixels;
}

std::vector<float> sine(int frames, int channels, double hz, double rate, int64_t offset) {
    std::vector<float> out(static_cast<size_t>(frames) * channels);
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            out[i * channels + c] =
                0.5f * static_cast<float>(std::sin(2 * M_PI * hz * (offset + i) / rate));
    return out;
}

// The first video stream of a probe has this codec, size and number of frames.
void expectVideo(const nlohmann::json& probe, const char* codec, int width, int height,
                 const char* frames) {
    auto* video = test::probeStream(probe, "video");
    ASSERT_NE(video, nullptr);
    EXPECT_EQ((*video)["codec_name"], codec);
    EXPECT_EQ((*video)["pix_fmt"], "yuv420p");
    EXPECT_EQ((*video)["width"], width);
    EXPECT_EQ((*video)["height"], height);
    EXPECT_EQ((*video)["nb_read_frames"], frames);
}

class MovieWriterTest : public ::testing::Test {
protected:
    void SetUp() override { dir = test::makeScratchDirectory("movie-writer"); }
    void TearDown() override { fs::remove_all(dir); }

    // Writes `seconds` of frames, each followed by the audio up to its time, as a capture does.
    void writeMovie(MovieWriter& writer, double seconds) {
        const auto& s = writer.settings();
        int frames = static_cast<int>(std::lround(seconds * s.fps));
        auto image = bgraFrame(s.width, s.height, 128);
        std::vector<int64_t> written(s.audioTracks.size(), 0);
        for (int i = 0; i <= frames; ++i) {
            if (i < frames) writer.appendVideoFrame(image.data(), s.width * 4, i / s.fps);
            for (size_t t = 0; t < s.audioTracks.size(); ++t) {
                const auto& a = s.audioTracks[t];
                int64_t until = std::llround(std::min(i + 1.0, double(frames)) / s.fps * a.sampleRate);
                while (written[t] < until) {
                    int n = static_cast<int>(std::min<int64_t>(1024, until - written[t]));
                    auto block = sine(n, a.channels, 440, a.sampleRate, written[t]);
                    writer.appendAudio(static_cast<int>(t), block.data(), n,
                                       static_cast<double>(written[t]) / a.sampleRate);
                    written[t] += n;
                }
            }
        }
    }

    fs::path dir;
};

TEST_F(MovieWriterTest, WritesH264AndAacIntoAFastStartMp4) {
    MovieWriterSettings settings;
    settings.width = 320;
    settings.height = 180;
    settings.fps = 30;
    settings.audioTracks = {AudioTrackSettings{}};
    auto path = dir / "out.mp4";
    MovieWriter writer(path, settings);
    writeMovie(writer, 2.0);
    writer.finish();

    auto probe = test::probeMedia(path);
    expectVideo(probe, "h264", 320, 180, "60");
    EXPECT_EQ((*test::probeStream(probe, "video"))["color_space"], "bt709");
    auto* audio = test::probeStream(probe, "audio");
    ASSERT_NE(audio, nullptr);
    EXPECT_EQ((*audio)["codec_name"], "aac");
    EXPECT_EQ((*audio)["sample_rate"], "48000");
    EXPECT_EQ((*audio)["channels"], 2);
    EXPECT_NEAR(std::stod((*audio)["duration"].get<std::string>()), 2.0, 0.03);
    EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), 2.0, 0.04);

    // "+faststart": the index comes before the media data.
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    ASSERT_NE(bytes.find("moov"), std::string::npos);
    EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
    // Nothing but the result is left in the folder.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
}

TEST_F(MovieWriterTest, TakesPlanarPicturesWithoutCopyingAndLetsThemGo) {
    MovieWriterSettings settings;
    settings.width = 320;
    settings.height = 180;
    settings.fps = 30;
    settings.preset = "ultrafast";
    auto path = dir / "planar.mp4";
    // Luma ramps across; chroma a colour on the left half and its opposite on the right.
    QImage picture = makePlanarPicture(320, 180);
    auto planes = planarPlanes(picture);
    const int stride = int(picture.bytesPerLine());
    for (int y = 0; y < 180; ++y)
        for (int x = 0; x < 320; ++x) planes[0][y * stride + x] = uint8_t(16 + x * 219 / 319);
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 160; ++x) {
            planes[1][y * stride + x] = x < 80 ? 90 : 166;
            planes[2][y * stride + x] = x < 80 ? 170 : 86;
        }
    {
        MovieWriter writer(path, settings);
        for (int i = 0; i < 15; ++i) writer.appendPlanarFrame(picture, i / 30.0);
        EXPECT_THROW(writer.appendPlanarFrame(makePlanarPicture(160, 90), 1.0), HalvaneError);
        writer.finish();
        EXPECT_EQ(writer.videoFramesWritten(), 15);
    }
    EXPECT_TRUE(picture.isDetached());  // the encoder holds no reference any more

    FrameSequence frames(path);
    const Yuv420View* decoded = frames.planes(0.2);
    ASSERT_NE(decoded, nullptr);
    for (int x : {10, 100, 200, 310})
        EXPECT_NEAR(decoded->planes[0][90 * decoded->strides[0] + x], 16 + x * 219 / 319, 3) << x;
    EXPECT_NEAR(decoded->planes[1][45 * decoded->strides[1] + 20], 90, 3);
    EXPECT_NEAR(decoded->planes[2][45 * decoded->strides[2] + 140], 86, 3);
}

TEST_F(MovieWriterTest, KeepsTheBitRateTableOfTheExport) {
    EXPECT_EQ(MovieWriter::defaultBitRate(1920, 1080, 30, VideoCodec::h264), 20'000'000);
    EXPECT_EQ(MovieWriter::defaultBitRate(1920, 1080, 60, VideoCodec::h264), 28'284'271);
    EXPECT_EQ(MovieWriter::defaultBitRate(1280, 720, 30, VideoCodec::h264), 10'000'000);
    EXPECT_EQ(MovieWriter::defaultBitRate(640, 480, 30, VideoCodec::h264), 6'000'000);
    EXPECT_EQ(MovieWriter::defaultBitRate(2560, 1440, 30, VideoCodec::h264), 28'000'000);
    EXPECT_EQ(MovieWriter::defaultBitRate(3840, 2160, 30, VideoCodec::hevc), 23'400'000);
}

TEST_F(MovieWriterTest, WritesHevcTaggedForPlayersAndEvensOddSizes) {
    MovieWriterSettings settings;
    settings.width = 161;
    settings.height = 91;
    settings.fps = 10;
    settings.codec = VideoCodec::hevc;
    settings.preset = "ultrafast";
    auto path = dir / "out.mp4";
    {
        MovieWriter writer(path, settings);
        auto image = bgraFrame(161, 91, 40);
        for (int i = 0; i < 5; ++i) writer.appendVideoFrame(image.data(), 161 * 4, i / 10.0);
        writer.finish();
    }
    auto probe = test::probeMedia(path);
    expectVideo(probe, "hevc", 160, 90, "5");
    EXPECT_EQ((*test::probeStream(probe, "video"))["codec_tag_string"], "hvc1");
    EXPECT_EQ(test::probeStream(probe, "audio"), nullptr);
}

TEST_F(MovieWriterTest, DropsFramesWhoseTimeDoesNotAdvance) {
    MovieWriterSettings settings;
    settings.width = 64;
    settings.height = 64;
    settings.fps = 30;
    auto path = dir / "out.mov";
    settings.container = MovieContainer::mov;
    MovieWriter writer(path, settings);
    auto image = bgraFrame(64, 64, 10);
    for (double t : {0.0, 0.1, 0.1, 0.05, 0.2}) writer.appendVideoFrame(image.data(), 256, t);
    EXPECT_EQ(writer.videoFramesWritten(), 3);
    writer.finish();
    auto times = test::videoFrameTimes(path);
    ASSERT_EQ(times.size(), 3u);
    EXPECT_NEAR(times[1], 0.1, 1e-4);
    EXPECT_NEAR(times[2], 0.2, 1e-4);
}

TEST_F(MovieWriterTest, FillsAnAudioGapWithSilenceSoSoundStaysOnItsTime) {
    MovieWriterSettings settings;
    settings.width = 64;
    settings.height = 64;
    settings.fps = 10;
    settings.audioTracks = {AudioTrackSettings{48000, 1, 96000}};
    auto path = dir / "out.mp4";
    MovieWriter writer(path, settings);
    auto image = bgraFrame(64, 64, 10);
    for (int i = 0; i < 20; ++i) writer.appendVideoFrame(image.data(), 256, i / 10.0);
    // The first block arrives at 1 s; a late duplicate of part of it is dropped.
    auto tone = sine(24000, 1, 1000, 48000, 0);
    writer.appendAudio(0, tone.data(), 24000, 1.0);
    writer.appendAudio(0, tone.data(), 12000, 1.25);
    writer.finish();

    auto samples = test::decodeAudioMono(path, 48000);
    ASSERT_GE(samples.size(), 70000u);
    auto rms = [&](size_t from, size_t to) {
        double sum = 0;
        for (size_t i = from; i < to; ++i) sum += samples[i] * samples[i];
        return std::sqrt(sum / (to - from));
    };
    EXPECT_LT(rms(0, 45000), 0.01);
    EXPECT_GT(rms(49000, 71000), 0.2);
    EXPECT_NEAR(static_cast<double>(samples.size()) / 48000, 1.5, 0.03);
}

TEST_F(MovieWriterTest, FragmentedMovieSurvivesAProcessThatNeverFinishes) {
    auto path = dir / "live.mov";
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MovieWriterSettings settings;
        settings.width = 128;
        settings.height = 72;
        settings.fps = 30;
        settings.preset = "ultrafast";
        settings.container = MovieContainer::mov;
        settings.fragmented = true;
        settings.audioTracks = {AudioTrackSettings{}};
        try {
            auto* writer = new MovieWriter(path, settings);  // never finished: the crash
            writeMovie(*writer, 5.0);
        } catch (...) {
            _exit(3);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);

    auto probe = test::probeMedia(path);
    auto* video = test::probeStream(probe, "video");
    ASSERT_NE(video, nullptr);
    // Fragments close at each key frame (every 2 s): at most the last two seconds are lost.
    EXPECT_GE(std::stoi((*video)["nb_read_frames"].get<std::string>()), 90);
    EXPECT_NE(test::probeStream(probe, "audio"), nullptr);
}

TEST_F(MovieWriterTest, UnwritableDestinationFailsAndLeavesNothing) {
    MovieWriterSettings settings;
    settings.width = 64;
    settings.height = 64;
    auto path = dir / "missing-folder" / "out.mp4";
    try {
        MovieWriter writer(path, settings);
        FAIL() << "expected an error";
    } catch (const HalvaneError& e) {
        EXPECT_NE(std::string(e.what()).find("out.mp4"), std::string::npos) << e.what();
    }
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(fs::is_empty(dir));
}

TEST_F(MovieWriterTest, CancelAndAbandonBothRemoveTheFile) {
    MovieWriterSettings settings;
    settings.width = 64;
    settings.height = 64;
    settings.audioTracks = {AudioTrackSettings{}};
    auto image = bgraFrame(64, 64, 99);
    {
        MovieWriter writer(dir / "a.mp4", settings);
        writer.appendVideoFrame(image.data(), 256, 0);
        writer.cancel();
        writer.cancel();
    }
    {
        MovieWriter writer(dir / "b.mp4", settings);
        writer.appendVideoFrame(image.data(), 256, 0);
    }
    {
        settings.fragmented = true;
        MovieWriter writer(dir / "c.mp4", settings);
        writer.appendVideoFrame(image.data(), 256, 0);
        writer.cancel();
    }
    EXPECT_TRUE(fs::is_empty(dir));
}

TEST_F(MovieWriterTest, TakesVideoAndTwoAudioTracksFromThreeThreadsAtOnce) {
    MovieWriterSettings settings;
    settings.width = 128;
    settings.height = 72;
    settings.fps = 30;
    settings.preset = "ultrafast";
    settings.container = MovieContainer::mov;
    settings.fragmented = true;
    settings.audioTracks = {AudioTrackSettings{48000, 2, 128000}, AudioTrackSettings{44100, 1, 64000}};
    auto path = dir / "live.mov";
    MovieWriter writer(path, settings);
    std::thread video([&] {
        auto image = bgraFrame(128, 72, 77);
        for (int i = 0; i < 60; ++i) writer.appendVideoFrame(image.data(), 128 * 4, i / 30.0);
    });
    auto audio = [&](int track) {
        const auto& a = settings.audioTracks[track];
        for (int64_t done = 0; done < 2 * a.sampleRate; done += 441) {
            auto block = sine(441, a.channels, 300, a.sampleRate, done);
            writer.appendAudio(track, block.data(), 441, double(done) / a.sampleRate);
        }
    };
    std::thread first(audio, 0), second(audio, 1);
    video.join();
    first.join();
    second.join();
    writer.finish();

    auto probe = test::probeMedia(path);
    int audioStreams = 0;
    for (const auto& s : probe["streams"]) {
        if (s["codec_type"] != "audio") continue;
        ++audioStreams;
        EXPECT_NEAR(std::stod(s["duration"].get<std::string>()), 2.0, 0.05);
    }
    EXPECT_EQ(audioStreams, 2);
    EXPECT_EQ((*test::probeStream(probe, "video"))["nb_read_frames"], "60");
}

TEST_F(MovieWriterTest, RejectsAnUnknownAudioTrack) {
    MovieWriterSettings settings;
    settings.width = 64;
    settings.height = 64;
    MovieWriter writer(dir / "x.mp4", settings);
    float samples[4] = {};
    EXPECT_THROW(writer.appendAudio(0, samples, 2, 0), HalvaneError);
    writer.cancel();
}

}  // namespace
