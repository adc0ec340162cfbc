#include "Audio/AudioOverlayMixer.h"

#include "Audio/ClickSound.h"
#include "Audio/VoiceEnhancer.h"
#include "support/MediaProbe.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

class AudioOverlayMixerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = test::makeScratchDirectory("overlay-mixer");
        // A 500 Hz tone of amplitude 0.5 at 44.1 kHz; 0.3 s is shorter than any export.
        int status = 0;
        test::runCommand("ffmpeg -v error -y -f lavfi -i sine=f=500:r=44100:d=0.3,volume=4 -c:a aac " +
                             (dir / "music.m4a").string() + " 2>&1",
                         &status);
        ASSERT_EQ(status, 0);
        test::runCommand("ffmpeg -v error -y -f lavfi -i sine=f=500:r=44100:d=3,volume=4 -c:a aac " +
                             (dir / "long.m4a").string() + " 2>&1",
                         &status);
        ASSERT_EQ(status, 0);
        std::ofstream(dir / "notes.txt") << "not music";
    }
    static void TearDownTestSuite() { fs::remove_all(dir); }

    static std::vector<float> silence(int frames) { return std::vector<float>(frames * 2, 0.f); }
    static float peak(const std::vector<float>& v, size_t from, size_t to) {
        float p = 0;
        for (size_t i = from; i < to; ++i) p = std::max(p, std::fabs(v[i]));
        return p;
    }
    static fs::path dir;
};
fs::path AudioOverlayMixerTest::dir;

TEST_F(AudioOverlayMixerTest, AClickJustBeforeABlockStillSoundsInIt) {
    const auto& wave = ClickSound::wave(ClickSoundKind::magicMouse);
    AudioOverlayMixer mixer({1.0 - 0.010}, wave, nullptr, 0, 10);
    auto block = silence(480);
    mixer.mix(block.data(), 480, 2, 1.0);
    // Frame 0 of the block is sample 480 of the wave, in both channels.
    EXPECT_FLOAT_EQ(block[0], VoiceEnhancer::softLimit(wave[480] * 0.4f));
    EXPECT_EQ(block[0], block[1]);
    EXPECT_GT(peak(block, 0, block.size()), 0.01f);
}

TEST_F(AudioOverlayMixerTest, OverlappingClicksAddUpUnderTheLimiter) {
    const auto& wave = ClickSound::wave(ClickSoundKind::mxMaster);
    AudioOverlayMixer one({0.0}, wave, nullptr, 0, 10);
    AudioOverlayMixer many({0.0, 0.0, 0.0, 0.0}, wave, nullptr, 0, 10);
    auto a = silence(3360);
    auto b = silence(3360);
    one.mix(a.data(), 3360, 2, 0);
    many.mix(b.data(), 3360, 2, 0);
    EXPECT_GT(peak(b, 0, b.size()), peak(a, 0, a.size()));
    EXPECT_LT(peak(b, 0, b.size()), 1.0f);
}

TEST_F(AudioOverlayMixerTest, ABlockWithNothingToAddIsUntouched) {
    AudioOverlayMixer mixer({5.0}, ClickSound::wave(ClickSoundKind::magicMouse), nullptr, 1, 10);
    std::vector<float> block = {0.95f, -0.95f, 0.3f, 0.2f};
    auto before = block;
    mixer.mix(block.data(), 2, 2, 1.0);
    EXPECT_EQ(block, before);  // 0.95 would have been limited had the block been touched
    mixer.mix(block.data(), 0, 2, 1.0);
    EXPECT_EQ(block, before);
}

TEST_F(AudioOverlayMixerTest, MusicLoopsFadesAndIsResampled) {
    auto music = MusicReader::open(dir / "music.m4a");
    ASSERT_NE(music, nullptr);
    const double duration = 1.6;
    AudioOverlayMixer mixer({}, {}, std::move(music), 1.0f, duration);
    const int total = static_cast<int>(duration * 48000);
    std::vector<float> out;
    for (int done = 0; done < total; done += 1000) {
        auto block = silence(std::min(1000, total - done));
        mixer.mix(block.data(), static_cast<int>(block.size() / 2), 2, done / 48000.0);
        out.insert(out.end(), block.begin(), block.end());
    }
    mixer.finish();
    EXPECT_EQ(out[0], 0.f);                              // envelope 0 at the start...
    EXPECT_LT(std::fabs(out[out.size() - 2]), 1e-4f);    // ...and at the last frame
    // Well past the music's own 0.3 s it sounds again: it started over.
    auto frameAt = [](double t) { return static_cast<size_t>(t * 48000) * 2; };
    EXPECT_GT(peak(out, frameAt(0.62), frameAt(0.72)), 0.05f);
    EXPECT_GT(peak(out, frameAt(0.92), frameAt(1.0)), 0.05f);
    // Still 500 Hz at 48 kHz: counted over a stretch inside the second round.
    int crossings = 0;
    for (size_t i = frameAt(0.35) + 2; i < frameAt(0.55); i += 2)
        crossings += (out[i - 2] < 0) != (out[i] < 0);
    EXPECT_NEAR(crossings / 2.0 / 0.2, 500, 30);
}

TEST_F(AudioOverlayMixerTest, FadeInAndFadeOutMeetOnShortResults) {
    auto music = MusicReader::open(dir / "long.m4a");
    AudioOverlayMixer mixer({}, {}, std::move(music), 1.0f, 1.0);
    auto block = silence(48000);
    mixer.mix(block.data(), 48000, 2, 0);
    // With 1 s in all the fade-out (from 1.5 s before the end) already holds the envelope
    // below the fade-in's 1 everywhere: at 0.5 s it is min(0.625, 0.333).
    float around = peak(block, 2 * 23800, 2 * 24200);
    EXPECT_NEAR(around, 0.5f / 3, 0.01f);
}

TEST_F(AudioOverlayMixerTest, MusicReaderRefusesWhatIsNotMusic) {
    EXPECT_EQ(MusicReader::open(dir / "notes.txt"), nullptr);
    EXPECT_EQ(MusicReader::open(dir / "absent.m4a"), nullptr);
    auto reader = MusicReader::open(dir / "music.m4a");
    reader->cancel();
    auto after = reader->next(100);
    EXPECT_EQ(after, std::vector<float>(200, 0.f));
}

}  // namespace
