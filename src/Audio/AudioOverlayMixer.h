#pragma once

#include "Audio/MusicReader.h"

#include <memory>
#include <vector>

namespace halvane {

// Lays click sounds and music over an export's sound, block by block, in output time. Music is
// mono in the mix, fades in over 0.8 s and out over the last 1.5 s; each click adds its wave at
// 0.4. The sum passes the voice enhancer's soft limiter. Lives for one export, on its audio
// thread alone.
class AudioOverlayMixer {
public:
    // `clickTimes` are output seconds at which a click starts (sorted here); `clickWave` mono at
    // `sampleRate`; `musicGain` is held to 0 ... 1.
    AudioOverlayMixer(std::vector<double> clickTimes, std::vector<float> clickWave,
                      std::unique_ptr<MusicReader> music, float musicGain, double outputDuration,
                      double sampleRate = 48000);

    // Interleaved samples changed in place; `startTime` is the output time of the first frame.
    // The music advances by exactly the frames that pass, so its position is the output time.
    void mix(float* samples, int frames, int channels, double startTime);

    // Stops the music reader.
    void finish();

    const std::vector<double>& clickTimes() const { return clickTimes_; }

private:
    float musicEnvelope(double t) const;

    std::vector<double> clickTimes_;
    std::vector<float> clickWave_;
    std::unique_ptr<MusicReader> music_;
    float musicGain_;
    double outputDuration_;
    double sampleRate_;
    std::vector<float> musicBlock_;
    std::vector<double> activeClicks_;
};

}  // namespace halvane
