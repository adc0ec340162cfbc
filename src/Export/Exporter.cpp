#include "Export/Exporter.h"

#include "Export/ExportAudio.h"
#include "Export/ExportFrames.h"
#include "Media/GifWriter.h"
#include "Model/Project.h"

#include <cmath>
#include <condition_variable>
#include <deque>
#include <thread>
#include <vector>

namespace halvane {

namespace {

constexpr int framesInFlight = 3;
constexpr int audioChunkFrames = 4800;

// Hands composed frames from the composing thread to the encoding one, at most three waiting.
class FrameQueue {
public:
    bool push(QImage frame, const std::atomic<bool>& stop) {
        std::unique_lock lock(mutex_);
        space_.wait(lock, [&] { return queue_.size() < framesInFlight || closed_ || stop.load(); });
        if (closed_ || stop.load()) return false;
        queue_.push_back(std::move(frame));
        ready_.notify_one();
        return true;
    }
    // Empty image at the end.
    QImage pop() {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return !queue_.empty() || done_; });
        if (queue_.empty()) return {};
        QImage frame = std::move(queue_.front());
        queue_.pop_front();
        space_.notify_one();
        return frame;
    }
    void finishProducing() {
        std::lock_guard lock(mutex_);
        done_ = true;
        ready_.notify_all();
    }
    void close() {
        std::lock_guard lock(mutex_);
        closed_ = true;
        done_ = true;
        space_.notify_all();
        ready_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable space_, ready_;
    std::deque<QImage> queue_;
    bool done_ = false;
    bool closed_ = false;
};

void removeQuietly(const std::filesystem::path& file) {
    std::error_code ignored;
    std::filesystem::remove(file, ignored);
}

}  // namespace

Exporter::Exporter(const Project& project, EditSettings settings, ExportOptions options)
    : project_(project), settings_(std::move(settings)), options_(std::move(options)) {}

Exporter::~Exporter() = default;

int64_t Exporter::movieFrameCount(double outputDuration, double fps) {
    const double end = std::max(outputDuration, 0.01);
    int64_t n = 0;
    while ((1.0 / fps) * double(n) <= end + 0.0001) ++n;
    return n;
}

int64_t Exporter::gifFrameCount(double outputDuration, double fps) {
    return std::max<int64_t>(int64_t(std::floor(outputDuration / (1.0 / fps))) + 1, 1);
}

void Exporter::record(std::exception_ptr error) {
    std::lock_guard lock(errorLock_);
    if (!firstError_) firstError_ = error;
}

bool Exporter::failed() {
    std::lock_guard lock(errorLock_);
    return firstError_ != nullptr;
}

void Exporter::throwIfCancelled() const {
    if (cancelled_.load()) throw ExportError::cancelled();
}

void Exporter::run(const std::filesystem::path& destination, const std::function<void(double)>& onProgress) {
    removeQuietly(destination);
    try {
        throwIfCancelled();
        ExportFrames frames(project_, settings_, options_.canvasSize, options_.fps);
        if (options_.format == ExportFormat::gif) runGif(destination, frames, onProgress);
        else runMovie(destination, frames, onProgress);
    } catch (...) {
        removeQuietly(destination);
        throw;
    }
}

void Exporter::runMovie(const std::filesystem::path& destination, ExportFrames& frames,
                        const std::function<void(double)>& onProgress) {
    std::unique_ptr<ExportAudio> audio = ExportAudio::open(project_, settings_, frames.speedMap());
    MovieWriterSettings ws;
    ws.width = int(options_.canvasSize.width);
    ws.height = int(options_.canvasSize.height);
    ws.fps = options_.fps;
    ws.codec = options_.format == ExportFormat::hevc ? VideoCodec::hevc : VideoCodec::h264;
    ws.bitRate = MovieWriter::defaultBitRate(ws.width, ws.height, ws.fps, ws.codec);
    ws.keyFrameInterval = int(2 * options_.fps);
    ws.preset = options_.preset;
    ws.container = MovieContainer::mp4;
    if (audio) ws.audioTracks.push_back(AudioTrackSettings{ExportAudio::sampleRate, ExportAudio::channels, 192000});
    std::unique_ptr<MovieWriter> writer;
    try {
        writer = std::make_unique<MovieWriter>(destination, ws);
    } catch (const HalvaneError& e) {
        throw ExportError::setupFailed(e.localizedDescription());
    }

    const double end = std::max(frames.outputDuration(), 0.01);
    const int64_t total = movieFrameCount(frames.outputDuration(), options_.fps);
    std::atomic<bool> stop{false};
    FrameQueue queue;

    // Composition runs ahead of the encoder by up to three frames.
    std::thread composer([&] {
        try {
            for (int64_t i = 0; i < total && !stop.load(); ++i) {
                if (cancelled_.load()) throw ExportError::cancelled();
                QImage frame = frames.composePlanar((1.0 / options_.fps) * double(i));
                if (frame.isNull()) throw ExportError::renderFailed();
                if (!queue.push(std::move(frame), stop)) break;
            }
        } catch (...) {
            record(std::current_exception());
            stop.store(true);
        }
        queue.finishProducing();
    });
    std::thread audioPump;
    if (audio) audioPump = std::thread([&] { pumpAudio(*audio, *writer); });

    try {
        for (int64_t i = 0;; ++i) {
            QImage frame = queue.pop();
            if (frame.isNull()) break;
            if (cancelled_.load()) throw ExportError::cancelled();
            writer->appendPlanarFrame(frame, (1.0 / options_.fps) * double(i));
            if ((i + 1) % 12 == 0 && onProgress) onProgress(std::min((1.0 / options_.fps) * double(i) / end, 1.0));
        }
    } catch (...) {
        record(std::current_exception());
        stop.store(true);
        queue.close();
    }
    composer.join();
    if (audioPump.joinable()) audioPump.join();
    if (audio) audio->finish();

    if (!failed() && cancelled_.load()) record(std::make_exception_ptr(ExportError::cancelled()));
    if (failed()) {
        writer->cancel();
        std::rethrow_exception(firstError_);
    }
    try {
        writer->finish();
    } catch (const HalvaneError& e) {
        writer->cancel();
        throw ExportError::setupFailed(e.localizedDescription());
    }
    if (onProgress) onProgress(1);
}

void Exporter::pumpAudio(ExportAudio& audio, MovieWriter& writer) {
    std::vector<float> block(size_t(audioChunkFrames) * ExportAudio::channels);
    try {
        while (!cancelled_.load() && !failed()) {
            double at = audio.position();
            int n = audio.read(block.data(), audioChunkFrames);
            if (n <= 0) break;
            writer.appendAudio(0, block.data(), n, at);
        }
    } catch (...) {
        record(std::current_exception());
    }
}

void Exporter::runGif(const std::filesystem::path& destination, ExportFrames& frames,
                      const std::function<void(double)>& onProgress) {
    std::unique_ptr<GifWriter> writer;
    try {
        writer = std::make_unique<GifWriter>(
            destination, GifWriterSettings{int(options_.canvasSize.width), int(options_.canvasSize.height), options_.fps});
    } catch (const HalvaneError&) {
        throw ExportError::setupFailed("could not create GIF file");
    }
    const int64_t total = gifFrameCount(frames.outputDuration(), options_.fps);
    try {
        for (int64_t i = 0; i < total; ++i) {
            throwIfCancelled();
            QImage frame = frames.compose((1.0 / options_.fps) * double(i));
            if (frame.isNull()) throw ExportError::renderFailed();
            writer->appendFrame(frame.constBits(), int(frame.bytesPerLine()));
            if (i % 10 == 0 && onProgress) onProgress(double(i) / double(total));
        }
        throwIfCancelled();
        writer->finish();
    } catch (const ExportError&) {
        writer->cancel();
        throw;
    } catch (const HalvaneError&) {
        writer->cancel();
        throw ExportError::renderFailed();
    }
    if (onProgress) onProgress(1);
}

}  // namespace halvane
