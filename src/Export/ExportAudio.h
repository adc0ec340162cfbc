#pragma once

#include "Audio/AudioOverlayMixer.h"
#include "Audio/VoiceEnhancer.h"
#include "Media/AudioEditPipeline.h"
#include "Model/EditSettings.h"
#include "Model/RecordedEvents.h"
#include "Model/SpeedMap.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace halvane {

class Project;

// The sound of an export in output time, 48 kHz interleaved stereo float: the take's own sound
// with trim, cuts and speed applied (pitch kept), volume, denoise and loudness, then click sounds
// and music laid over it. Without the take's sound but with clicks or music, it is made from silence.
class ExportAudio {
public:
    static constexpr int sampleRate = AudioEditPipeline::sampleRate;
    static constexpr int channels = AudioEditPipeline::channels;

    // None when the export has no sound at all. Throws ExportError when the take's sound exists
    // but can't be read.
    static std::unique_ptr<ExportAudio> open(const Project& project, const EditSettings& settings,
                                             const SpeedMap& speedMap);

    // Fills up to maxFrames frames; gives how many, 0 at the end.
    int read(float* interleaved, int maxFrames);
    int64_t totalFrames() const { return totalFrames_; }
    // Output time of the next frame read gives.
    double position() const { return double(written_) / sampleRate; }
    void finish();

    // ---- the rules, public for tests
    // The kept source ranges of the speed map with their rates, in output order.
    static std::vector<KeptAudioRange> keptRanges(const SpeedMap& speedMap, double audioVolume);
    // Press times that survive trim and cuts, in output seconds, sorted.
    static std::vector<double> clickTimes(const RecordedEvents& events, const SpeedMap& speedMap);
    // The processing the take's sound gets; none when neither denoise nor normalise is on.
    static std::optional<VoiceEnhancer::Config> enhancerConfig(const EditSettings& settings,
                                                               const std::filesystem::path& movie);

private:
    ExportAudio() = default;

    std::unique_ptr<AudioEditPipeline> pipeline_;
    std::unique_ptr<VoiceEnhancer> enhancer_;
    std::unique_ptr<AudioOverlayMixer> mixer_;
    int64_t totalFrames_ = 0;
    int64_t written_ = 0;
};

}  // namespace halvane
