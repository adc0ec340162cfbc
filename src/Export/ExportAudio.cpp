#include "Export/ExportAudio.h"

#include "Audio/AudioAnalysis.h"
#include "Audio/ClickSound.h"
#include "Audio/MusicReader.h"
#include "Export/ExportError.h"
#include "Model/Project.h"

#include <algorithm>
#include <cmath>

namespace halvane {

std::vector<KeptAudioRange> ExportAudio::keptRanges(const SpeedMap& speedMap, double audioVolume) {
    // Values above 1 are not boosted; the volume only ever lowers.
    const double volume = audioVolume >= 0.999 ? 1.0 : std::max(audioVolume, 0.0);
    std::vector<KeptAudioRange> ranges;
    for (const auto& piece : speedMap.pieces()) {
        if (piece.sourceEnd - piece.sourceStart <= 0.001) continue;
        double rate = std::fabs(piece.factor - 1) > 0.0001 ? piece.factor : 1.0;
        ranges.push_back({piece.sourceStart, piece.sourceEnd, rate, volume});
    }
    return ranges;
}

std::vector<double> ExportAudio::clickTimes(const RecordedEvents& events, const SpeedMap& speedMap) {
    const TimeRange trim = speedMap.sourceRange();
    std::vector<double> times;
    for (const auto& click : events.clicks) {
        if (click.phase != ClickPhase::down || !trim.contains(click.t)) continue;
        bool removed = std::any_of(speedMap.removedRanges().begin(), speedMap.removedRanges().end(),
                                   [&](const TimeRange& cut) { return cut.contains(click.t); });
        if (!removed) times.push_back(speedMap.outputTime(click.t));
    }
    std::sort(times.begin(), times.end());
    return times;
}

std::optional<VoiceEnhancer::Config> ExportAudio::enhancerConfig(const EditSettings& settings,
                                                                 const std::filesystem::path& movie) {
    if (settings.audioNormalize) {
        float gain = 1;
        if (auto analysis = AudioAnalysis::analyze(movie, 50))
            gain = VoiceEnhancer::normalizingGain(analysis->overallRMS, analysis->overallPeak);
        return VoiceEnhancer::Config{settings.audioDenoise, gain};
    }
    if (settings.audioDenoise) return VoiceEnhancer::Config{true, 1};
    return std::nullopt;
}

std::unique_ptr<ExportAudio> ExportAudio::open(const Project& project, const EditSettings& settings,
                                               const SpeedMap& speedMap) {
    std::unique_ptr<ExportAudio> audio(new ExportAudio());
    const auto movie = project.fileURL(PackageFile::screen);
    if (!settings.audioMuted) {
        try {
            audio->pipeline_ = AudioEditPipeline::open(movie, keptRanges(speedMap, settings.audioVolume));
        } catch (const HalvaneError& e) {
            throw ExportError::setupFailed(e.localizedDescription());
        }
    }
    const double end = std::max(speedMap.outputDuration(), 0.01);
    std::vector<double> clicks;
    if (settings.clickSound != ClickSoundKind::none) clicks = clickTimes(project.events(), speedMap);
    std::unique_ptr<MusicReader> music;
    if (settings.musicFileName) music = MusicReader::open(project.fileURL(*settings.musicFileName));

    if (audio->pipeline_) {
        if (auto config = enhancerConfig(settings, movie))
            audio->enhancer_ = std::make_unique<VoiceEnhancer>(sampleRate, channels, *config);
    }
    if (!clicks.empty() || music) {
        audio->mixer_ = std::make_unique<AudioOverlayMixer>(std::move(clicks), ClickSound::wave(settings.clickSound),
                                                            std::move(music),
                                                            float(std::clamp(settings.musicVolume, 0.0, 1.0)), end,
                                                            double(sampleRate));
    }
    if (!audio->pipeline_ && !audio->mixer_) return nullptr;
    audio->totalFrames_ = audio->pipeline_ ? audio->pipeline_->totalFrames() : int64_t(std::trunc(end * sampleRate));
    return audio;
}

int ExportAudio::read(float* interleaved, int maxFrames) {
    int frames = 0;
    if (pipeline_) {
        try {
            frames = pipeline_->read(interleaved, maxFrames);
        } catch (const HalvaneError& e) {
            throw ExportError::setupFailed(e.localizedDescription());
        }
    } else {
        frames = int(std::min<int64_t>(maxFrames, totalFrames_ - written_));
        std::fill(interleaved, interleaved + size_t(std::max(frames, 0)) * channels, 0.0f);
    }
    if (frames <= 0) return 0;
    if (enhancer_) enhancer_->processInterleaved(interleaved, frames, channels);
    if (mixer_) mixer_->mix(interleaved, frames, channels, position());
    written_ += frames;
    return frames;
}

void ExportAudio::finish() {
    if (mixer_) mixer_->finish();
}

}  // namespace halvane
