#include "Audio/AudioAnalysis.h"

#include "support/MediaProbe.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

class AudioAnalysisTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { dir = test::makeScratchDirectory("audio-analysis"); }
    static void TearDownTestSuite() { fs::remove_all(dir); }

    static fs::path make(const std::string& name, const std::string& lavfi) {
        int status = 0;
        auto path = dir / name;
        test::runCommand("ffmpeg -v error -y -f lavfi -i \"" + lavfi + "\" " + path.string() +
                             " 2>&1",
                         &status);
        EXPECT_EQ(status, 0) << lavfi;
        return path;
    }
    static fs::path dir;
};
fs::path AudioAnalysisTest::dir;

TEST_F(AudioAnalysisTest, BinsTheMonoMixdown) {
    // One second of a half-scale tone, then one second of silence, as 16-bit WAV.
    auto path = make("tone.wav", "aevalsrc=if(lt(t\\,1)\\,0.5*sin(2*PI*1000*t)\\,0):s=48000:d=2");
    auto analysis = AudioAnalysis::analyze(path, 50);
    ASSERT_TRUE(analysis);
    EXPECT_EQ(analysis->binsPerSecond, 50);
    ASSERT_EQ(analysis->rms.size(), 100u);
    ASSERT_EQ(analysis->peaks.size(), 100u);
    EXPECT_NEAR(analysis->rms[10], 0.5 / std::sqrt(2), 0.005);
    EXPECT_NEAR(analysis->peaks[10], 0.5, 0.005);
    EXPECT_LT(analysis->rms[80], 1e-4);
    EXPECT_NEAR(analysis->overallRMS, 0.5 / 2, 0.005);  // half the time at 0.354
    EXPECT_NEAR(analysis->overallPeak, 0.5, 0.005);
}

TEST_F(AudioAnalysisTest, AShortFileGivesOneBinOverWhatExists) {
    auto path = make("short.wav", "aevalsrc=0.25:s=48000:d=0.005");  // 240 samples, DC
    auto analysis = AudioAnalysis::analyze(path, 50);
    ASSERT_TRUE(analysis);
    ASSERT_EQ(analysis->rms.size(), 1u);
    EXPECT_NEAR(analysis->rms[0], 0.25, 0.002);
}

TEST_F(AudioAnalysisTest, NoSoundGivesNone) {
    auto path = make("picture.mp4", "color=s=32x32:d=0.2");
    EXPECT_FALSE(AudioAnalysis::analyze(path, 50));
    EXPECT_FALSE(AudioAnalysis::analyze(dir / "absent.wav", 50));
}

RecordedEvents noEvents() { return {}; }

TEST(DeadAir, PerfectSilenceIsOneRangeLessThePadding) {
    std::vector<float> rms(500, 0.f);  // 10 s at 50 bins a second
    auto ranges = AudioAnalysis::deadAirRanges(rms, 50, noEvents(), 1.5, 0.3);
    ASSERT_EQ(ranges.size(), 1u);
    EXPECT_DOUBLE_EQ(ranges[0].lower, 0.3);
    EXPECT_DOUBLE_EQ(ranges[0].upper, 9.7);
}

TEST(DeadAir, ThresholdAdaptsToTheRoomWithinItsBand) {
    // A loud room (floor 0.03) holds the threshold at 0.02: nothing is quiet enough.
    std::vector<float> loud(500, 0.03f);
    for (int i = 100; i < 300; ++i) loud[i] = 0.021f;
    EXPECT_TRUE(AudioAnalysis::deadAirRanges(loud, 50, noEvents(), 1.5, 0.3).empty());
    // With a floor of 0.004 the threshold is 0.01: a 3 s stretch at 0.009 counts.
    std::vector<float> room(500, 0.05f);
    for (int i = 0; i < 50; ++i) room[i] = 0.004f;
    for (int i = 200; i < 350; ++i) room[i] = 0.009f;
    auto ranges = AudioAnalysis::deadAirRanges(room, 50, noEvents(), 1.5, 0.3);
    ASSERT_EQ(ranges.size(), 1u);  // the first second is too short once padded
    EXPECT_DOUBLE_EQ(ranges[0].lower, 4.3);
    EXPECT_DOUBLE_EQ(ranges[0].upper, 6.7);
}

TEST(DeadAir, ShortRunsClicksAndBusyPointersAreNotDeadAir) {
    std::vector<float> rms(400, 0.5f);
    for (int i = 50; i < 145; ++i) rms[i] = 0;  // 1.9 s: 1.3 s once padded, too short
    for (int i = 200; i < 400; ++i) rms[i] = 0; // 4 s reaching the end of the list
    // Fewer than ten quiet bins don't matter here: the floor is the 10th percentile, 0.
    EXPECT_EQ(AudioAnalysis::deadAirRanges(rms, 50, noEvents(), 1.5, 0.3).size(), 1u);

    RecordedEvents click;
    click.clicks.push_back(ClickEvent{7.7, 0.5, 0.5, 0, ClickPhase::down, std::nullopt});
    EXPECT_TRUE(AudioAnalysis::deadAirRanges(rms, 50, click, 1.5, 0.3).empty());  // at the end

    RecordedEvents still;  // jitter within 0.002 doesn't count as movement
    RecordedEvents busy;   // 10 moves a second does
    for (int i = 0; i < 40; ++i) {
        double t = 4.3 + i * 0.1;
        still.samples.push_back({t, 0.5 + (i % 2) * 0.0015, 0.5});
        busy.samples.push_back({t, 0.1 + i * 0.01, 0.5});
    }
    EXPECT_EQ(AudioAnalysis::deadAirRanges(rms, 50, still, 1.5, 0.3).size(), 1u);
    EXPECT_TRUE(AudioAnalysis::deadAirRanges(rms, 50, busy, 1.5, 0.3).empty());
}

TEST(DeadAir, WithFewBinsTheFloorIsTheQuietestBin) {
    std::vector<float> rms = {0.006f, 0.03f, 0.03f, 0.03f};
    // Floor 0.006 → threshold 0.015; only bin 0 is below; 0.02 s is far too short anyway.
    auto ranges = AudioAnalysis::deadAirRanges(rms, 1, noEvents(), 0.5, 0.1);
    ASSERT_EQ(ranges.size(), 1u);
    EXPECT_DOUBLE_EQ(ranges[0].lower, 0.1);
    EXPECT_DOUBLE_EQ(ranges[0].upper, 0.9);
}

}  // namespace
