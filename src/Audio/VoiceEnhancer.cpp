#include "Audio/VoiceEnhancer.h"

#include <algorithm>

namespace halvane {

namespace {

constexpr float gateThreshold = 0.006f;
constexpr float gateFloor = 0.12f;  // about -18 dB: the gate lowers, it doesn't close

VoiceEnhancer::Biquad highPass80(double sampleRate) {
    const double w = 502.6548245743669 / sampleRate;  // 2π × 80 Hz
    const double alpha = std::sin(w) / 1.4142;
    const double a0 = 1 + alpha;
    const double c = std::cos(w);
    VoiceEnhancer::Biquad q;
    q.b0 = static_cast<float>(((1 + c) / 2) / a0);
    q.b1 = static_cast<float>(-(1 + c) / a0);
    q.b2 = q.b0;
    q.a1 = static_cast<float>(-2 * c / a0);
    q.a2 = static_cast<float>((1 - alpha) / a0);
    return q;
}

float coefficient(double sampleRate, double seconds) {
    return static_cast<float>(std::exp(-1.0 / (sampleRate * seconds)));
}

}  // namespace

VoiceEnhancer::VoiceEnhancer(double sampleRate, int channels, Config config)
    : config(config),
      sampleRate_(std::max(sampleRate, 8000.0)),
      highPass_(static_cast<size_t>(std::max(channels, 1)), highPass80(sampleRate_)),
      envelopeAttack_(coefficient(sampleRate_, 0.003)),
      envelopeRelease_(coefficient(sampleRate_, 0.04)),
      gainAttack_(coefficient(sampleRate_, 0.004)),
      gainRelease_(coefficient(sampleRate_, 0.12)) {}

float VoiceEnhancer::normalizingGain(float overallRMS, float overallPeak) {
    if (!(overallRMS > 0.00002f) || !(overallPeak > 0.0001f)) return 1;
    return std::clamp(std::min(0.1f / overallRMS, 0.9f / overallPeak), 0.25f, 8.0f);
}

bool VoiceEnhancer::bypassed(int frames, int channels) const {
    return (!config.denoise && std::fabs(config.gain - 1) <= 0.001f) || frames <= 0 || channels <= 0;
}

float VoiceEnhancer::filter(int channel, float x) {
    // A stream with more channels than filters shares the last one.
    Biquad& q = highPass_[std::min(static_cast<size_t>(channel), highPass_.size() - 1)];
    float y = q.b0 * x + q.z1;
    q.z1 = q.b1 * x - q.a1 * y + q.z2;
    q.z2 = q.b2 * x - q.a2 * y;
    return y;
}

// One gate for all channels, so the stereo image doesn't move.
float VoiceEnhancer::gate(float peak) {
    float c = gateEnvelope_ < peak ? envelopeAttack_ : envelopeRelease_;
    gateEnvelope_ = gateEnvelope_ * c + peak * (1 - c);
    float target = gateEnvelope_ > gateThreshold ? 1.0f : gateFloor;
    c = gateGain_ < target ? gainAttack_ : gainRelease_;
    gateGain_ = gateGain_ * c + (1 - c) * target;
    return gateGain_;
}

void VoiceEnhancer::processInterleaved(float* samples, int frames, int channels) {
    if (bypassed(frames, channels)) return;
    for (int i = 0; i < frames; ++i) {
        float* frame = samples + static_cast<size_t>(i) * channels;
        float peak = 0;
        for (int c = 0; c < channels; ++c) {
            if (config.denoise) frame[c] = filter(c, frame[c]);
            peak = std::max(peak, std::fabs(frame[c]));
        }
        float g = config.denoise ? gate(peak) : 1.0f;
        for (int c = 0; c < channels; ++c) frame[c] = softLimit(config.gain * g * frame[c]);
    }
}

void VoiceEnhancer::process(float* const* channelData, int channelCount, int frames) {
    if (bypassed(frames, channelCount)) return;
    for (int i = 0; i < frames; ++i) {
        float peak = 0;
        for (int c = 0; c < channelCount; ++c) {
            float& s = channelData[c][i];
            if (config.denoise) s = filter(c, s);
            peak = std::max(peak, std::fabs(s));
        }
        float g = config.denoise ? gate(peak) : 1.0f;
        for (int c = 0; c < channelCount; ++c)
            channelData[c][i] = softLimit(config.gain * g * channelData[c][i]);
    }
}

}  // namespace halvane
