#include "Media/AudioEditPipeline.h"

#include "Media/FrameSequence.h"
#include "Media/MovieWriter.h"
#include "Support/HalvaneError.h"
#include "SyntheticMovie.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

std::vector<float> readAll(AudioEditPipeline& pipeline) {
    std::vector<float> out;
    std::vector<float> block(4800 * 2);
    while (int n = pipeline.read(block.data(), 4800)) out.insert(out.end(), block.begin(), block.begin() + n * 2);
    return out;
}

std::vector<float> left(const std::vector<float>& stereo) {
    std::vector<float> mono(stereo.size() / 2);
    for (size_t i = 0; i < mono.size(); ++i) mono[i] = stereo[2 * i];
    return mono;
}

// Source time shown at output time t, for ranges laid end to end (what the speed map does).
double sourceTime(const std::vector<KeptAudioRange>& ranges, double t) {
    double start = 0;
    for (const auto& r : ranges) {
        double length = (r.sourceEnd - r.sourceStart) / r.rate;
        if (t < start + length) return r.sourceStart + (t - start) * r.rate;
        start += length;
    }
    return ranges.back().sourceEnd;
}

class AudioEditPipelineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = test::makeScratchDirectory("audio-edit");
        test::SyntheticMovie movie;
        movie.flashes = {0.5, 1.5, 2.5, 3.5, 4.5, 5.5};
        movie.write(dir / "take.mov");
    }
    static void TearDownTestSuite() { fs::remove_all(dir); }
    static fs::path dir;
};
fs::path AudioEditPipelineTest::dir;

// Two cuts and a stretch at twice the speed between them.
const std::vector<KeptAudioRange> edit = {{0, 1.2}, {2.0, 4.0, 2.0}, {4.8, 6.0}};

TEST_F(AudioEditPipelineTest, OutputLengthIsTheKeptTimeOverTheRates) {
    EXPECT_EQ(AudioEditPipeline::outputFrames(edit), 3.4 * 48000);
    EXPECT_EQ(AudioEditPipeline::outputFrames({{0, 1, 1.00005}}), 48000);  // too close to 1 to scale
    EXPECT_EQ(AudioEditPipeline::outputFrames({{0, 1, 3}}), 16000);
    auto pipeline = AudioEditPipeline::open(dir / "take.mov", edit);
    ASSERT_NE(pipeline, nullptr);
    auto samples = readAll(*pipeline);
    EXPECT_EQ(static_cast<int64_t>(samples.size() / 2), AudioEditPipeline::outputFrames(edit));
    EXPECT_EQ(pipeline->read(samples.data(), 10), 0);
}

TEST_F(AudioEditPipelineTest, BeepsLandAtTheirOutputTimes) {
    auto pipeline = AudioEditPipeline::open(dir / "take.mov", edit);
    auto found = test::audioOnsets(left(readAll(*pipeline)), 48000);
    // 0.5 kept; 1.5 cut; 2.5 and 3.5 at 2x from 1.2; 4.5 cut; 5.5 from 2.2.
    std::vector<double> expected = {0.5, 1.45, 1.95, 2.9};
    ASSERT_EQ(found.size(), expected.size());
    // Unscaled audio is sample-exact; time stretching moves an onset by up to half of its
    // overlap window (about 20 ms).
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(found[i], expected[i], i == 1 || i == 2 ? 0.021 : 0.001) << i;
}

TEST_F(AudioEditPipelineTest, SpeedKeepsThePitch) {
    test::SyntheticMovie tone;
    tone.flashes = {0};
    tone.flashLength = 3;
    tone.duration = 3;
    tone.write(dir / "tone.mov");
    for (double rate : {2.0, 3.0, 0.5}) {
        auto pipeline = AudioEditPipeline::open(dir / "tone.mov", {{0.5, 2.5, rate}});
        auto samples = left(readAll(*pipeline));
        ASSERT_EQ(samples.size(), static_cast<size_t>(std::llround(2.0 / rate * 48000)));
        int crossings = 0;
        size_t from = samples.size() / 4, to = samples.size() * 3 / 4;
        for (size_t i = from + 1; i < to; ++i) crossings += (samples[i - 1] < 0) != (samples[i] < 0);
        double hz = crossings / 2.0 / ((to - from) / 48000.0);
        EXPECT_NEAR(hz, 1000, 30) << "rate " << rate;
    }
}

TEST_F(AudioEditPipelineTest, MixesAllTracksOnTheMoviesClockAndAppliesVolume) {
    test::SyntheticMovie late;
    late.audioTracks = 2;
    late.audioStart = 1.0;  // the sound begins a second into the picture
    late.duration = 3;
    late.flashes = {1.5};
    late.write(dir / "late.mov");
    auto pipeline = AudioEditPipeline::open(dir / "late.mov", {{0, 3, 1, 0.5}});
    auto samples = left(readAll(*pipeline));
    auto found = test::audioOnsets(samples, 48000);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_NEAR(found[0], 1.5, 0.01);
    float peak = 0;
    for (float s : samples) peak = std::max(peak, std::abs(s));
    EXPECT_NEAR(peak, 0.25, 0.03);
}

TEST_F(AudioEditPipelineTest, RangesPastTheSoundAreSilenceOfTheRightLength) {
    auto pipeline = AudioEditPipeline::open(dir / "take.mov", {{5.4, 5.6}, {7, 9}});
    auto samples = left(readAll(*pipeline));
    ASSERT_EQ(samples.size(), 105600u);
    float tail = 0;
    for (size_t i = 0.2 * 48000; i < samples.size(); ++i) tail = std::max(tail, std::abs(samples[i]));
    EXPECT_EQ(tail, 0.f);
}

TEST_F(AudioEditPipelineTest, RefusesWhatItCannotUse) {
    test::SyntheticMovie silent;
    silent.audioTracks = 0;
    silent.duration = 0.5;
    silent.write(dir / "silent.mov");
    EXPECT_EQ(AudioEditPipeline::open(dir / "silent.mov", {{0, 0.5}}), nullptr);
    EXPECT_THROW(AudioEditPipeline::open(dir / "take.mov", {{2, 3}, {1, 2}}), HalvaneError);
    EXPECT_THROW(AudioEditPipeline::open(dir / "absent.mov", {{0, 1}}), HalvaneError);
    auto none = AudioEditPipeline::open(dir / "take.mov", {});
    float block[8];
    EXPECT_EQ(none->read(block, 4), 0);
}

// Picture and sound go through the same edit: every flash must meet its beep in the written file.
TEST_F(AudioEditPipelineTest, FlashesAndBeepsStayTogetherThroughCutsAndSpeed) {
    const double fps = 30;
    const double end = 3.4;
    auto out = dir / "edited.mp4";
    MovieWriterSettings settings;
    settings.width = 160;
    settings.height = 90;
    settings.fps = fps;
    settings.preset = "ultrafast";
    settings.audioTracks = {AudioTrackSettings{}};
    MovieWriter writer(out, settings);
    FrameSequence frames(dir / "take.mov");
    for (int i = 0; i / fps <= end + 0.0001; ++i) {
        auto* image = frames.image(sourceTime(edit, i / fps));
        ASSERT_NE(image, nullptr);
        writer.appendVideoFrame(image->constBits(), static_cast<int>(image->bytesPerLine()), i / fps);
    }
    auto pipeline = AudioEditPipeline::open(dir / "take.mov", edit);
    std::vector<float> block(4800 * 2);
    while (true) {
        int64_t at = pipeline->position();
        int n = pipeline->read(block.data(), 4800);
        if (n == 0) break;
        writer.appendAudio(0, block.data(), n, at / 48000.0);
    }
    writer.finish();

    auto probe = test::probeMedia(out);
    ASSERT_NE(test::probeStream(probe, "audio"), nullptr);
    auto flashes = test::onsets(test::frameBrightness(out), fps, 128, 0.05);
    auto beeps = test::audioOnsets(test::decodeAudioMono(out, 48000), 48000);
    ASSERT_EQ(flashes.size(), 4u);
    ASSERT_EQ(beeps.size(), flashes.size());
    for (size_t i = 0; i < flashes.size(); ++i)
        EXPECT_NEAR(beeps[i], flashes[i], 1 / fps + 1e-3) << "flash " << i;
}

}  // namespace
