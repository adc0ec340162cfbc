#pragma once

// Movies made for tests: a dark picture that flashes white, and a tone that sounds, at chosen
// instants, written through the program's own writer and checked from outside with ffprobe.

#include "Media/MovieWriter.h"

#include <cmath>
#include <filesystem>
#include <vector>

namespace halvane::test {

struct SyntheticMovie {
    int width = 160;
    int height = 90;
    double fps = 30;
    double duration = 6;
    std::vector<double> flashes;     // picture white and tone on from each instant...
    double flashLength = 0.2;        // ...for this long
    double toneHz = 1000;
    int audioTracks = 1;             // 0: no sound; the tone goes to track 0, others stay quiet
    double audioStart = 0;           // the sound track begins this late
    // Brightness encodes the frame number (dark grey ramp) when no flash is on.
    bool rampBrightness = false;

    bool flashOn(double t) const {
        for (double f : flashes)
            if (t >= f - 1e-9 && t < f + flashLength - 1e-9) return true;
        return false;
    }

    void write(const std::filesystem::path& path) const {
        MovieWriterSettings s;
        s.width = width;
        s.height = height;
        s.fps = fps;
        s.preset = "ultrafast";
        s.keyFrameInterval = static_cast<int>(fps);
        for (int i = 0; i < audioTracks; ++i) s.audioTracks.push_back(AudioTrackSettings{});
        MovieWriter writer(path, s);
        std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
        int frames = static_cast<int>(std::lround(duration * fps));
        for (int i = 0; i < frames; ++i) {
            double t = i / fps;
            uint8_t level = flashOn(t) ? 255 : rampBrightness ? static_cast<uint8_t>(i % 100) : 16;
            for (size_t p = 0; p < pixels.size(); p += 4) {
                pixels[p] = pixels[p + 1] = pixels[p + 2] = level;
                pixels[p + 3] = 255;
            }
            writer.appendVideoFrame(pixels.data(), width * 4, t);
        }
        for (int track = 0; track < audioTracks; ++track) {
            const int rate = 48000;
            auto first = static_cast<int64_t>(std::llround(audioStart * rate));
            auto total = static_cast<int64_t>(std::llround(duration * rate));
            std::vector<float> block;
            for (int64_t done = first; done < total; done += 1024) {
                int n = static_cast<int>(std::min<int64_t>(1024, total - done));
                block.assign(static_cast<size_t>(n) * 2, 0.f);
                for (int k = 0; k < n && track == 0; ++k) {
                    double t = double(done + k) / rate;
                    float v = flashOn(t) ? 0.5f * float(std::sin(2 * M_PI * toneHz * t)) : 0.f;
                    block[2 * k] = block[2 * k + 1] = v;
                }
                writer.appendAudio(track, block.data(), n, double(done) / rate);
            }
        }
        writer.finish();
    }
};

// Onsets of a signal: times where it rises above `threshold` (half way up, for a fair edge) after
// staying below it for `gap`
// seconds.
inline std::vector<double> onsets(const std::vector<double>& values, double rate, double threshold,
                                  double gap) {
    std::vector<double> result;
    double lastAbove = -1e9;
    for (size_t i = 0; i < values.size(); ++i) {
        double t = i / rate;
        if (values[i] > threshold) {
            if (t - lastAbove > gap) result.push_back(t);
            lastAbove = t;
        }
    }
    return result;
}

inline std::vector<double> audioOnsets(const std::vector<float>& samples, double rate) {
    std::vector<double> magnitude(samples.size());
    for (size_t i = 0; i < samples.size(); ++i) magnitude[i] = std::abs(samples[i]);
    return onsets(magnitude, rate, 0.25, 0.05);
}

}  // namespace halvane::test
