#include "Capture/CaptureController.h"

#include "Media/MovieWriter.h"
#include "Support/Localization.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace halvane {

namespace {

HalvaneError writerFailed(const std::string& why) {
    return HalvaneError(Localization::format("error.recordingFailed", why), 4);
}

}  // namespace

CaptureController::NoFramesCaptured::NoFramesCaptured() : HalvaneError(Localization::string("error.noVideoFrames"), 5) {}

CaptureController::CaptureController(Config config, std::filesystem::path outputURL, std::shared_ptr<PauseClock> pauseClock,
                                     Sources sources)
    : config_(std::move(config)), outputURL_(std::move(outputURL)), pauseClock_(std::move(pauseClock)), sources_(std::move(sources)) {}

CaptureController::~CaptureController() {
    abort();
}

void CaptureController::start() {
    if (!sources_.screen) throw writerFailed("no screen source");
    MovieWriterSettings settings;
    settings.width = config_.pixelWidth;
    settings.height = config_.pixelHeight;
    settings.fps = config_.fps;
    settings.codec = VideoCodec::h264;
    // Live capture has to keep up on two cores: the fastest preset, with a bit rate high enough
    // that screen text survives it.
    settings.preset = "ultrafast";
    settings.bitRate = MovieWriter::defaultBitRate(config_.pixelWidth, config_.pixelHeight, config_.fps, VideoCodec::h264) * 2;
    settings.keyFrameInterval = static_cast<int>(std::lround(config_.fps * 2));
    settings.container = MovieContainer::mov;
    settings.fragmented = true;
    if (config_.systemAudio) {
        systemTrack_ = static_cast<int>(settings.audioTracks.size());
        settings.audioTracks.push_back({});
    }
    if (config_.microphone) {
        micTrack_ = static_cast<int>(settings.audioTracks.size());
        settings.audioTracks.push_back({});
    }
    writer_ = std::make_unique<MovieWriter>(outputURL_, settings);

    {
        std::lock_guard lock(mutex_);
        acceptingBuffers_ = true;
        encoderRunning_ = true;
    }
    encoder_ = std::thread([this] { encodeLoop(); });
    try {
        if (config_.systemAudio) {
            if (!sources_.systemAudio) throw writerFailed("no system audio source");
            sources_.systemAudio->start(
                [this](const float* s, size_t n, double t) { handleAudio(systemTrack_, s, n, t, false); },
                [this](const std::string& why) { reportRuntimeError(why); });
        }
        if (config_.microphone) {
            if (!sources_.microphone) throw writerFailed("no microphone source");
            sources_.microphone->start([this](const float* s, size_t n, double t) { handleAudio(micTrack_, s, n, t, true); },
                                       [this](const std::string& why) { reportRuntimeError(why); });
        }
    } catch (...) {
        abort();
        throw;
    }
    nextSlot_ = pauseClock_->now();
    timer_ = std::make_unique<RepeatingTimer>("halvane.capture.video", 1.0 / config_.fps, [this] { grabTick(); });
}

void CaptureController::grabTick() {
    double interval = 1.0 / config_.fps;
    double hostTime = pauseClock_->now();
    {
        std::lock_guard lock(mutex_);
        if (!acceptingBuffers_) return;
        // Slots that passed while this thread was held up count as dropped frames.
        if (!pauseClock_->isPaused() && sessionStart_) {
            int64_t missed = static_cast<int64_t>(std::floor((hostTime - nextSlot_) / interval));
            if (missed > 0) {
                statistics_.ticks += missed;
                statistics_.framesDropped += missed;
            }
        }
        nextSlot_ = std::max(nextSlot_ + interval, hostTime + interval * 0.5);
    }
    auto adjusted = pauseClock_->adjusted(hostTime);
    if (!adjusted) return;

    QImage image;
    try {
        image = sources_.screen->grab();
    } catch (const std::exception& e) {
        reportRuntimeError(e.what());
        return;
    }

    bool first = false;
    {
        std::lock_guard lock(mutex_);
        if (!acceptingBuffers_) return;
        ++statistics_.ticks;
        if (lastVideoTime_ && *adjusted <= *lastVideoTime_) return;
        if (!sessionStart_) {
            sessionStart_ = *adjusted;
            first = true;
        }
        lastVideoTime_ = *adjusted;
        lastImage_ = image;
        if (static_cast<int>(queue_.size()) >= maxQueuedFrames) {
            ++statistics_.framesDropped;
        } else {
            queue_.push_back({std::move(image), *adjusted - *sessionStart_});
            queueChanged_.notify_all();
        }
    }
    if (first && onSessionStart) onSessionStart(*adjusted);
}

void CaptureController::encodeLoop() {
    for (;;) {
        QueuedFrame frame;
        {
            std::unique_lock lock(mutex_);
            queueChanged_.wait(lock, [this] { return !queue_.empty() || !encoderRunning_; });
            if (queue_.empty()) return;
            frame = std::move(queue_.front());
            queue_.pop_front();
            encoding_ = true;
        }
        try {
            writer_->appendVideoFrame(frame.image.constBits(), static_cast<int>(frame.image.bytesPerLine()), frame.time);
        } catch (const std::exception& e) {
            {
                std::lock_guard lock(mutex_);
                writerError_ = e.what();
            }
            reportRuntimeError(e.what());
        }
        std::lock_guard lock(mutex_);
        encoding_ = false;
        ++statistics_.framesWritten;
        queueChanged_.notify_all();
    }
}

void CaptureController::handleAudio(int track, const float* samples, size_t frames, double hostTime, bool isMicrophone) {
    auto adjusted = pauseClock_->adjusted(hostTime);
    if (!adjusted) return;
    double start;
    std::optional<double> silentUntil;
    {
        std::lock_guard lock(mutex_);
        if (!acceptingBuffers_ || !sessionStart_ || !writer_) return;
        start = *sessionStart_;
        silentUntil = micSilentUntil_;
    }
    double time = *adjusted - start;
    size_t skip = 0;
    // Sound heard before the first frame is dropped, so the audio never starts before the picture.
    if (time < 0) {
        skip = static_cast<size_t>(std::ceil(-time * AudioCaptureSource::sampleRate));
        if (skip >= frames) return;
        time += static_cast<double>(skip) / AudioCaptureSource::sampleRate;
    }
    const float* data = samples + skip * AudioCaptureSource::channels;
    size_t count = frames - skip;
    time = continuousAudioTime(track, time, count);
    std::vector<float> silence;
    if (isMicrophone && silentUntil && hostTime < *silentUntil) {
        silence.assign(count * AudioCaptureSource::channels, 0.0f);
        data = silence.data();
    }
    try {
        writer_->appendAudio(track, data, static_cast<int>(count), time);
    } catch (const std::exception& e) {
        reportRuntimeError(e.what());
    }
}

// Each chunk's own stamp jitters with the sound server's scheduling; the sample count doesn't. A
// chunk that follows on within the tolerance continues the count, so the writer never has to drop
// or pad samples for jitter; a real break (a pause, an overrun) starts a new count at its stamp.
double CaptureController::continuousAudioTime(int track, double stamped, size_t frames) {
    constexpr double tolerance = 0.03;
    std::lock_guard lock(mutex_);
    auto& next = nextAudioTime_[track];
    double time = next && std::fabs(stamped - *next) < tolerance ? *next : stamped;
    next = time + static_cast<double>(frames) / AudioCaptureSource::sampleRate;
    return time;
}

void CaptureController::reportRuntimeError(const std::string& description) {
    {
        std::lock_guard lock(mutex_);
        if (!acceptingBuffers_) return;
        acceptingBuffers_ = false;
    }
    if (onRuntimeError) onRuntimeError(description);
}

void CaptureController::setMicSilentUntil(double hostSeconds) {
    std::lock_guard lock(mutex_);
    micSilentUntil_ = hostSeconds;
}

CaptureController::Statistics CaptureController::statistics() const {
    std::lock_guard lock(mutex_);
    return statistics_;
}

std::optional<double> CaptureController::sessionStart() const {
    std::lock_guard lock(mutex_);
    return sessionStart_;
}

void CaptureController::stopSources() {
    if (timer_) timer_->cancel();
    if (sources_.systemAudio) sources_.systemAudio->stop();
    if (sources_.microphone) sources_.microphone->stop();
}

double CaptureController::stop() {
    {
        std::lock_guard lock(mutex_);
        acceptingBuffers_ = false;
    }
    stopSources();
    std::optional<double> sessionStart;
    {
        std::lock_guard lock(mutex_);
        sessionStart = sessionStart_;
    }
    if (!writer_ || !sessionStart) {
        releasePipeline();
        throw NoFramesCaptured();
    }
    // A stop during a pause counts the pause to its end: the movie ends where the pause began.
    pauseClock_->resume();
    double endTime = *pauseClock_->adjusted(pauseClock_->now());
    {
        std::unique_lock lock(mutex_);
        queueChanged_.wait(lock, [this] { return queue_.empty() && !encoding_; });
        // A screen that stood still at the end still lasts until the stop.
        if (lastVideoTime_ && endTime - *lastVideoTime_ > 0.1 && !lastImage_.isNull()) {
            queue_.push_back({lastImage_, endTime - *sessionStart});
            lastVideoTime_ = endTime;
            queueChanged_.notify_all();
        }
        encoderRunning_ = false;
        queueChanged_.notify_all();
    }
    if (encoder_.joinable()) encoder_.join();
    std::string failure;
    {
        std::lock_guard lock(mutex_);
        failure = writerError_;
    }
    if (failure.empty()) {
        try {
            writer_->finish();
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    double duration = std::max(0.0, lastVideoTime_.value_or(*sessionStart) - *sessionStart);
    if (!failure.empty()) {
        // What the writer managed to finish stays: a fragmented movie is readable up to its last
        // complete fragment.
        releasePipeline();
        throw writerFailed(failure);
    }
    releasePipeline();
    return duration;
}

void CaptureController::abort() {
    {
        std::lock_guard lock(mutex_);
        acceptingBuffers_ = false;
    }
    stopSources();
    {
        std::lock_guard lock(mutex_);
        queue_.clear();
        encoderRunning_ = false;
        queueChanged_.notify_all();
    }
    if (encoder_.joinable()) encoder_.join();
    if (writer_) writer_->cancel();
    releasePipeline();
}

void CaptureController::releasePipeline() {
    if (writer_ && !writer_->videoFramesWritten()) writer_->cancel();
    writer_.reset();
    timer_.reset();
    std::lock_guard lock(mutex_);
    lastImage_ = QImage();
    micSilentUntil_.reset();
}

}  // namespace halvane
