#pragma once

#include <filesystem>
#include <memory>
#include <vector>

namespace halvane {

class AudioDecoder;

// Music for an export: a file's sound as 48 kHz interleaved stereo float, endlessly, starting
// over whenever the file ends. A reader that breaks mid-way gives silence from then on, never an
// error: music is an ornament and must not fail an export.
class MusicReader {
public:
    // nullptr when the file doesn't exist, has no sound, or can't be read.
    static std::unique_ptr<MusicReader> open(const std::filesystem::path& file);
    ~MusicReader();

    // 2 × frames values: the next frames of the music.
    std::vector<float> next(int frames);
    // Fills `out` (2 × frames values) in place, without allocating once warmed up.
    void next(float* out, int frames);

    // Drops the decoder; afterwards the reader gives silence.
    void cancel();
    bool broken() const { return broken_; }

private:
    explicit MusicReader(std::filesystem::path file, std::unique_ptr<AudioDecoder> decoder);
    bool reopen();

    std::filesystem::path file_;
    std::unique_ptr<AudioDecoder> decoder_;
    bool broken_ = false;
};

}  // namespace halvane
