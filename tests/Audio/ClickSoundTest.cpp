#include "Audio/ClickSound.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

using namespace halvane;

namespace {

uint32_t read32(const std::string& s, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<uint8_t>(s[at + i]);
    return v;
}

TEST(ClickSound, WavesHaveTheirLengthsAFadeInAndStayBelowFullScale) {
    const auto& magic = ClickSound::wave(ClickSoundKind::magicMouse);
    const auto& mx = ClickSound::wave(ClickSoundKind::mxMaster);
    EXPECT_EQ(magic.size(), 1920u);
    EXPECT_EQ(mx.size(), 3360u);
    EXPECT_TRUE(ClickSound::wave(ClickSoundKind::none).empty());
    EXPECT_EQ(magic[0], 0.f);
    EXPECT_EQ(mx[0], 0.f);
    EXPECT_EQ(&magic, &ClickSound::wave(ClickSoundKind::magicMouse));  // built once
    for (const auto* wave : {&magic, &mx}) {
        float peak = 0;
        for (float s : *wave) peak = std::max(peak, std::fabs(s));
        EXPECT_GT(peak, 0.3f);
        EXPECT_LT(peak, 1.0f);
        // The tail has decayed to near silence.
        EXPECT_LT(std::fabs(wave->back()), 0.05f);
    }
    // n = 100 of the magic mouse wave, worked out by hand from its recipe.
    double t = 100 / 48000.0;
    double s = (std::sin(2 * M_PI * 1900 * t) * 0.6 + std::sin(2 * M_PI * 4200 * t) * 0.4 +
                std::sin(2 * M_PI * 6400 * t) * 0.18) * std::exp(-130 * t);
    EXPECT_NEAR(magic[100], s * 0.9, 0.3 * 0.001);  // the noise is below 2^-10
}

TEST(ClickSound, WaveDataIsAMono16BitWaveFile) {
    auto none = ClickSound::waveData(ClickSoundKind::none);
    EXPECT_EQ(none.size(), 44u);
    auto data = ClickSound::waveData(ClickSoundKind::mxMaster);
    ASSERT_EQ(data.size(), 44u + 2 * 3360);
    EXPECT_EQ(data.substr(0, 4), "RIFF");
    EXPECT_EQ(read32(data, 4), 36u + 2 * 3360);
    EXPECT_EQ(data.substr(8, 8), "WAVEfmt ");
    EXPECT_EQ(read32(data, 16), 16u);
    EXPECT_EQ(read32(data, 20), 1u | 1u << 16);  // PCM, one channel
    EXPECT_EQ(read32(data, 24), 48000u);
    EXPECT_EQ(read32(data, 28), 96000u);
    EXPECT_EQ(read32(data, 32), 2u | 16u << 16);
    EXPECT_EQ(data.substr(36, 4), "data");
    EXPECT_EQ(read32(data, 40), 2u * 3360);
    int16_t sample = 0;
    std::memcpy(&sample, data.data() + 44 + 2 * 200, 2);
    EXPECT_EQ(sample, static_cast<int16_t>(ClickSound::wave(ClickSoundKind::mxMaster)[200] * 32767));
}

}  // namespace
