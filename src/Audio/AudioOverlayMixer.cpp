#include "Audio/AudioOverlayMixer.h"

#include "Audio/VoiceEnhancer.h"

#include <algorithm>

namespace halvane {

AudioOverlayMixer::AudioOverlayMixer(std::vector<double> clickTimes, std::vector<float> clickWave,
                                     std::unique_ptr<MusicReader> music, float musicGain,
                                     double outputDuration, double sampleRate)
    : clickTimes_(std::move(clickTimes)),
      clickWave_(std::move(clickWave)),
      music_(std::move(music)),
      musicGain_(std::clamp(musicGain, 0.0f, 1.0f)),
      outputDuration_(outputDuration),
      sampleRate_(sampleRate > 0 ? sampleRate : 48000) {
    std::sort(clickTimes_.begin(), clickTimes_.end());
}

float AudioOverlayMixer::musicEnvelope(double t) const {
    double fadeIn = std::clamp(t / 0.8, 0.0, 1.0);
    double fadeOut = std::clamp((outputDuration_ - t) / 1.5, 0.0, 1.0);
    return static_cast<float>(std::min(fadeIn, fadeOut));
}

void AudioOverlayMixer::mix(float* samples, int frames, int channels, double startTime) {
    if (frames < 1 || channels < 1) return;
    const bool withMusic = music_ != nullptr;
    if (withMusic) {
        if (musicBlock_.size() < static_cast<size_t>(frames) * 2)
            musicBlock_.resize(static_cast<size_t>(frames) * 2);
        music_->next(musicBlock_.data(), frames);
    }
    // Clicks that sound somewhere in this block, found by bisection: the list is sorted.
    const double waveDuration = clickWave_.size() / sampleRate_;
    const double blockEnd = startTime + frames / sampleRate_;
    activeClicks_.clear();
    for (auto it = std::upper_bound(clickTimes_.begin(), clickTimes_.end(), startTime - waveDuration);
         it != clickTimes_.end() && *it < blockEnd; ++it)
        if (startTime < *it + waveDuration) activeClicks_.push_back(*it);
    if (!withMusic && activeClicks_.empty()) return;

    const auto waveLength = static_cast<int64_t>(clickWave_.size());
    for (int i = 0; i < frames; ++i) {
        const double t = startTime + i / sampleRate_;
        float v = 0;
        if (withMusic) {
            float mono = (musicBlock_[2 * i] + musicBlock_[2 * i + 1]) * 0.5f;
            v = musicGain_ * mono * musicEnvelope(t);
        }
        for (double c0 : activeClicks_) {
            auto k = static_cast<int64_t>((t - c0) * sampleRate_);
            if (k >= 0 && k < waveLength) v += clickWave_[k] * 0.4f;
        }
        if (v == 0) continue;
        float* frame = samples + static_cast<size_t>(i) * channels;
        for (int c = 0; c < channels; ++c) frame[c] = VoiceEnhancer::softLimit(frame[c] + v);
    }
}

void AudioOverlayMixer::finish() {
    if (music_) music_->cancel();
}

}  // namespace halvane
