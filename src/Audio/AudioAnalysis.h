#pragma once

#include "Model/RecordedEvents.h"
#include "Model/TimeRange.h"

#include <filesystem>
#include <optional>
#include <vector>

namespace halvane {

// The loudness of a recording in short bins of a mono mixdown at 48 kHz: the waveform of the
// timeline, the normalising gain of the export, and the search for dead air.
struct AudioAnalysis {
    int binsPerSecond = 50;
    std::vector<float> peaks;  // greatest absolute sample of each bin, at most 1
    std::vector<float> rms;    // root mean square of each bin, at most 1
    float overallRMS = 0;      // over the whole file; not limited
    float overallPeak = 0;     // at most 1

    friend bool operator==(const AudioAnalysis&, const AudioAnalysis&) = default;

    // Reads the whole file once. None when it has no sound or can't be read: callers treat
    // that as a take without audio.
    static std::optional<AudioAnalysis> analyze(const std::filesystem::path& file,
                                                int binsPerSecond);

    // Quiet stretches worth cutting: runs of bins below a threshold that adapts to the room
    // (2.5 × the tenth-percentile bin, held to 0.008 ... 0.02), shrunk by `padding` at both ends,
    // at least `minLength` long, with no click inside and the pointer mostly still (fewer than
    // six movements a second). Ascending and disjoint.
    static std::vector<TimeRange> deadAirRanges(const std::vector<float>& rms, int binsPerSecond,
                                                const RecordedEvents& events, double minLength,
                                                double padding);
};

}  // namespace halvane
