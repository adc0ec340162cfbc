#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace halvane {

// One stretch of the source's sound that the edit keeps, in source seconds, played at `rate`
// (2 = twice as fast, pitch kept) and `volume` (linear; 0 or less is silence).
struct KeptAudioRange {
    double sourceStart = 0;
    double sourceEnd = 0;
    double rate = 1;
    double volume = 1;
    friend bool operator==(const KeptAudioRange&, const KeptAudioRange&) = default;
};

// The sound of an edit in output time: all audio streams of a movie mixed, resampled to 48 kHz
// stereo float, cut to the kept ranges (given in output order, rising in source time) and
// time-stretched without changing pitch. The output is exactly outputFrames(ranges) long: a range
// past the end of the recorded sound is silence, and stretching never adds or loses a sample.
class AudioEditPipeline {
public:
    static constexpr int sampleRate = 48000;
    static constexpr int channels = 2;

    // nullptr when the movie has no audio stream. Throws HalvaneError "audio reader failed: …"
    // when it can't be read, and on ranges that run backwards in source time.
    static std::unique_ptr<AudioEditPipeline> open(const std::filesystem::path& movie,
                                                   std::vector<KeptAudioRange> ranges);

    // Output length in frames at 48 kHz: each range's duration divided by its rate, the ranges
    // laid end to end and the running end rounded to a frame.
    static int64_t outputFrames(const std::vector<KeptAudioRange>& ranges);

    ~AudioEditPipeline();
    AudioEditPipeline(const AudioEditPipeline&) = delete;
    AudioEditPipeline& operator=(const AudioEditPipeline&) = delete;

    // Fills up to maxFrames interleaved stereo frames; gives how many, 0 at the end.
    // Throws HalvaneError "audio reader failed: …" on a decoding failure.
    int read(float* interleaved, int maxFrames);

    int64_t totalFrames() const;
    int64_t position() const;  // frames given out so far

private:
    struct Impl;
    explicit AudioEditPipeline(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvane
