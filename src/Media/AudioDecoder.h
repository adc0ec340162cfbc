#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

namespace halvane {

// The sound of a media file as one stream of interleaved 32-bit float samples: every audio
// stream decoded, resampled to the asked rate and channel count and mixed (summed, not
// averaged). Sound keeps the file's clock: a track that begins late is preceded by silence.
class AudioDecoder {
public:
    // nullptr when the file has no decodable audio stream. Throws HalvaneError
    // "cannot read \"file\": reason" when the file can't be opened.
    static std::unique_ptr<AudioDecoder> open(const std::filesystem::path& file, int sampleRate,
                                              int channels);
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder&) = delete;
    AudioDecoder& operator=(const AudioDecoder&) = delete;

    // Fills up to maxFrames frames; gives how many, 0 at the end. Throws HalvaneError when
    // decoding fails in a way that can't be skipped.
    int read(float* interleaved, int maxFrames);

    int sampleRate() const;
    int channels() const;

private:
    struct Impl;
    explicit AudioDecoder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvane
