#include "Audio/MusicReader.h"

#include "Media/AudioDecoder.h"
#include "Support/HalvaneError.h"

#include <algorithm>

namespace halvane {

namespace {
constexpr int rate = 48000;
}

MusicReader::MusicReader(std::filesystem::path file, std::unique_ptr<AudioDecoder> decoder)
    : file_(std::move(file)), decoder_(std::move(decoder)) {}

MusicReader::~MusicReader() = default;

std::unique_ptr<MusicReader> MusicReader::open(const std::filesystem::path& file) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(file, ec)) return nullptr;
    try {
        auto decoder = AudioDecoder::open(file, rate, 2);
        if (!decoder) return nullptr;
        return std::unique_ptr<MusicReader>(new MusicReader(file, std::move(decoder)));
    } catch (const HalvaneError&) {
        return nullptr;
    }
}

bool MusicReader::reopen() {
    decoder_.reset();
    try {
        decoder_ = AudioDecoder::open(file_, rate, 2);
    } catch (const HalvaneError&) {
        decoder_.reset();
    }
    return decoder_ != nullptr;
}

std::vector<float> MusicReader::next(int frames) {
    std::vector<float> out(static_cast<size_t>(std::max(frames, 0)) * 2, 0.0f);
    next(out.data(), std::max(frames, 0));
    return out;
}

void MusicReader::next(float* out, int frames) {
    std::fill(out, out + static_cast<size_t>(frames) * 2, 0.0f);
    int filled = 0;
    bool emptyRound = false;  // a file that decodes to nothing must not spin for ever
    while (filled < frames && !broken_) {
        int n = 0;
        try {
            n = decoder_ ? decoder_->read(out + static_cast<size_t>(filled) * 2, frames - filled) : 0;
        } catch (const HalvaneError&) {
            broken_ = true;
            break;
        }
        if (n > 0) {
            filled += n;
            emptyRound = false;
            continue;
        }
        // The file has ended: start it over, so the music loops.
        if (emptyRound || !reopen()) broken_ = true;
        emptyRound = true;
    }
}

void MusicReader::cancel() {
    decoder_.reset();
    broken_ = true;
}

}  // namespace halvane
