#include "Audio/VoiceEnhancer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace halvane;

namespace {

std::vector<float> tone(int frames, int channels, double hz, float amplitude, double rate = 48000) {
    std::vector<float> out(static_cast<size_t>(frames) * channels);
    for (int i = 0; i < frames; ++i)
        for (int c = 0; c < channels; ++c)
            out[i * channels + c] = amplitude * static_cast<float>(std::sin(2 * M_PI * hz * i / rate));
    return out;
}

float peakOf(const std::vector<float>& v, size_t from = 0) {
    float p = 0;
    for (size_t i = from; i < v.size(); ++i) p = std::max(p, std::fabs(v[i]));
    return p;
}

TEST(VoiceEnhancer, LeavesABlockBitIdenticalWhenThereIsNothingToDo) {
    VoiceEnhancer enhancer(48000, 2, {false, 1.0005f});
    auto samples = tone(512, 2, 440, 0.95f);
    auto before = samples;
    enhancer.processInterleaved(samples.data(), 512, 2);
    EXPECT_EQ(samples, before);  // 0.95 isn't limited: the block is skipped
    enhancer.config.gain = 1.01f;
    enhancer.processInterleaved(samples.data(), 512, 2);
    EXPECT_LT(peakOf(samples), 0.95f * 1.01f);  // now it passes the limiter
    EXPECT_GT(peakOf(samples), 0.9f);
}

TEST(VoiceEnhancer, GainDoublesAndLimitsWithoutMovingTheFilter) {
    VoiceEnhancer enhancer(48000, 2, {false, 2});
    std::vector<float> samples = {0.1f, -0.2f, 0.3f, 0.6f};
    enhancer.processInterleaved(samples.data(), 2, 2);
    EXPECT_FLOAT_EQ(samples[0], 0.2f);
    EXPECT_FLOAT_EQ(samples[1], -0.4f);
    EXPECT_FLOAT_EQ(samples[2], 0.6f);
    EXPECT_GT(samples[3], 0.89f);
    EXPECT_LT(samples[3], 1.0f);
    for (const auto& q : enhancer.highPass()) {
        EXPECT_EQ(q.z1, 0.f);
        EXPECT_EQ(q.z2, 0.f);
    }
    EXPECT_EQ(enhancer.gateGain(), 1.f);
}

TEST(VoiceEnhancer, SoftLimiterPassesUpTo089AndNeverReachesOne) {
    EXPECT_EQ(VoiceEnhancer::softLimit(0.89f), 0.89f);
    EXPECT_EQ(VoiceEnhancer::softLimit(-0.5f), -0.5f);
    float big = VoiceEnhancer::softLimit(1000.f);
    EXPECT_LE(big, 1.0f);
    EXPECT_GT(big, 0.999f);
    EXPECT_FLOAT_EQ(VoiceEnhancer::softLimit(-1000.f), -big);
    EXPECT_LT(VoiceEnhancer::softLimit(0.95f), 0.95f);
}

TEST(VoiceEnhancer, DenoiseRemovesRumbleKeepsVoiceAndGatesSilence) {
    VoiceEnhancer enhancer(48000, 1, {true, 1});
    auto rumble = tone(48000, 1, 20, 0.5f);
    enhancer.processInterleaved(rumble.data(), 48000, 1);
    EXPECT_LT(peakOf(rumble, 24000), 0.5f * 0.1f);  // 20 Hz is two octaves below the corner

    VoiceEnhancer voice(48000, 1, {true, 1});
    auto speech = tone(48000, 1, 1000, 0.5f);
    voice.processInterleaved(speech.data(), 48000, 1);
    EXPECT_NEAR(peakOf(speech, 24000), 0.5f, 0.02f);
    EXPECT_NEAR(voice.gateGain(), 1.0f, 1e-3);

    std::vector<float> silence(96000, 0.f);
    voice.processInterleaved(silence.data(), 96000, 1);
    EXPECT_NEAR(voice.gateGain(), 0.12f, 1e-3);
}

TEST(VoiceEnhancer, InterleavedAndPlanarAgreeAndExtraChannelsShareTheLastFilter) {
    auto interleaved = tone(1000, 2, 300, 0.4f);
    std::vector<float> left(1000), right(1000);
    for (int i = 0; i < 1000; ++i) {
        left[i] = interleaved[2 * i];
        right[i] = interleaved[2 * i + 1];
    }
    VoiceEnhancer a(48000, 2, {true, 1.5f});
    VoiceEnhancer b(48000, 2, {true, 1.5f});
    a.processInterleaved(interleaved.data(), 1000, 2);
    float* planes[2] = {left.data(), right.data()};
    b.process(planes, 2, 1000);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(interleaved[2 * i], left[i]);
        EXPECT_EQ(interleaved[2 * i + 1], right[i]);
    }

    // One filter for two identical channels: the second runs through the same, already moved,
    // state, so the channels come out different.
    VoiceEnhancer shared(48000, 1, {true, 1});
    auto twin = tone(64, 2, 300, 0.4f);
    shared.processInterleaved(twin.data(), 64, 2);
    EXPECT_NE(twin[2 * 10], twin[2 * 10 + 1]);
}

TEST(VoiceEnhancer, ClampsItsConstructionArguments) {
    VoiceEnhancer slow(4000, 0, {});
    EXPECT_EQ(slow.sampleRate(), 8000);
    EXPECT_EQ(slow.highPass().size(), 1u);
    const auto& q = slow.highPass()[0];
    EXPECT_EQ(q.b2, q.b0);
    EXPECT_NEAR(q.b0 + q.b1 + q.b2, 0.f, 1e-6);  // a high-pass blocks DC
}

TEST(VoiceEnhancer, NormalizingGainFollowsTheOverallLevel) {
    EXPECT_EQ(VoiceEnhancer::normalizingGain(0.00001f, 0.5f), 1.f);  // silence stays as it is
    EXPECT_EQ(VoiceEnhancer::normalizingGain(0.001f, 0.01f), 8.f);   // very quiet: at most 8
    EXPECT_FLOAT_EQ(VoiceEnhancer::normalizingGain(0.05f, 0.9f), 1.f);  // the peak caps it
    EXPECT_FLOAT_EQ(VoiceEnhancer::normalizingGain(0.05f, 0.3f), 2.f);
    EXPECT_EQ(VoiceEnhancer::normalizingGain(0.9f, 1.0f), 0.25f);
}

}  // namespace
