#pragma once

#include <cmath>
#include <vector>

namespace halvane {

// The one sample-by-sample sound path, shared by export and preview so the editor sounds like
// the file: an 80 Hz high-pass and a noise gate for "denoise", a fixed gain for normalising, and
// a soft limiter. Works in place on 32-bit float; processing never allocates.
class VoiceEnhancer {
public:
    struct Config {
        bool denoise = false;
        float gain = 1;
        friend bool operator==(const Config&, const Config&) = default;
    };

    // Single-precision transposed direct form II.
    struct Biquad {
        float b0 = 1, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
        float z1 = 0, z2 = 0;
        friend bool operator==(const Biquad&, const Biquad&) = default;
    };

    VoiceEnhancer(double sampleRate, int channels, Config config);

    // `frames` frames of `channels` interleaved samples.
    void processInterleaved(float* samples, int frames, int channels);
    // One pointer per channel, each to `frames` samples.
    void process(float* const* channels, int channelCount, int frames);

    // May be replaced between blocks; filter and gate keep their state.
    Config config;

    double sampleRate() const { return sampleRate_; }
    const std::vector<Biquad>& highPass() const { return highPass_; }
    float gateGain() const { return gateGain_; }

    // Above 0.89 the value bends towards 1 and never reaches it; below, it passes unchanged.
    static float softLimit(float v) {
        float magnitude = std::fabs(v);
        if (magnitude <= 0.89f) return v;
        float limited = 0.89f + 0.11f * std::tanh((magnitude - 0.89f) / 0.11f);
        return v < 0 ? -limited : limited;
    }

    // The normalising gain for a recording's overall level: none for near silence, otherwise
    // towards an RMS of 0.1 without pushing the peak past 0.9, held to 0.25 ... 8.
    static float normalizingGain(float overallRMS, float overallPeak);

private:
    bool bypassed(int frames, int channels) const;
    float gate(float peak);
    float filter(int channel, float x);

    double sampleRate_;
    std::vector<Biquad> highPass_;
    float gateEnvelope_ = 0;
    float gateGain_ = 1;
    float envelopeAttack_;
    float envelopeRelease_;
    float gainAttack_;
    float gainRelease_;
};

}  // namespace halvane
