#include "Audio/ClickSound.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace halvane {

namespace {

struct Partial {
    double hz;
    double amplitude;
};

struct Recipe {
    int length;
    std::array<Partial, 3> partials;
    double partialDecay;
    double noiseAmplitude;
    double noiseDecay;
};

std::vector<float> synthesise(const Recipe& r) {
    std::vector<float> wave(static_cast<size_t>(r.length));
    uint64_t state = 0x5EED;
    for (int n = 0; n < r.length; ++n) {
        const double t = n / double(ClickSound::sampleRate);
        double s = 0;
        for (const auto& p : r.partials) s += std::sin(2 * M_PI * p.hz * t) * p.amplitude;
        s *= std::exp(-r.partialDecay * t);
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        // 2^-63, not 2^-53: the noise stays below 2^-10, a faint tick under the tone.
        const double noise = static_cast<double>(state >> 11) * std::ldexp(1.0, -63);
        wave[n] = static_cast<float>((noise * r.noiseAmplitude * std::exp(-r.noiseDecay * t) + s) * 0.9);
    }
    for (int n = 0; n < std::min(48, r.length); ++n) wave[n] *= n / 48.0f;  // 1 ms fade-in
    return wave;
}

void put32(std::string& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out += static_cast<char>((v >> (8 * i)) & 0xFF);
}
void put16(std::string& out, uint16_t v) {
    out += static_cast<char>(v & 0xFF);
    out += static_cast<char>(v >> 8);
}

}  // namespace

const std::vector<float>& ClickSound::wave(ClickSoundKind kind) {
    static const std::vector<float> none;
    static const std::vector<float> magicMouse =
        synthesise({1920, {{{1900, 0.6}, {4200, 0.4}, {6400, 0.18}}}, 130, 0.3, 600});
    static const std::vector<float> mxMaster =
        synthesise({3360, {{{760, 0.85}, {1500, 0.35}, {2600, 0.16}}}, 60, 0.12, 280});
    switch (kind) {
    case ClickSoundKind::magicMouse: return magicMouse;
    case ClickSoundKind::mxMaster: return mxMaster;
    case ClickSoundKind::none: break;
    }
    return none;
}

std::string ClickSound::waveData(ClickSoundKind kind) {
    const auto& samples = wave(kind);
    const auto dataBytes = static_cast<uint32_t>(2 * samples.size());
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    put32(out, 36 + dataBytes);
    out += "WAVEfmt ";
    put32(out, 16);
    put16(out, 1);  // PCM
    put16(out, 1);  // mono
    put32(out, sampleRate);
    put32(out, sampleRate * 2);
    put16(out, 2);
    put16(out, 16);
    out += "data";
    put32(out, dataBytes);
    for (float s : samples)
        put16(out, static_cast<uint16_t>(static_cast<int16_t>(std::clamp(s, -1.0f, 1.0f) * 32767)));
    return out;
}

}  // namespace halvane
