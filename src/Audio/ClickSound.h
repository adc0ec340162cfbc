#pragma once

#include "Model/EditTypes.h"

#include <string>
#include <vector>

namespace halvane {

// The click sounds laid over an export, synthesised so the program ships no samples: three
// decaying partials and a burst of noise, mono at 48 kHz, built once a process.
struct ClickSound {
    static constexpr int sampleRate = 48000;

    // Empty for `none`.
    static const std::vector<float>& wave(ClickSoundKind kind);

    // The wave as a 16-bit PCM RIFF WAVE file in memory, for players that want a file.
    static std::string waveData(ClickSoundKind kind);
};

}  // namespace halvane
