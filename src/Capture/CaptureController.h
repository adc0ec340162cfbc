#pragma once

#include "Capture/PauseClock.h"
#include "Capture/RepeatingTimer.h"
#include "Platform/AudioCaptureSource.h"
#include "Platform/ScreenGrabber.h"
#include "Support/HalvaneError.h"

#include <QImage>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace halvane {

class MovieWriter;

// Turns one screen source (and the take's sound) into one movie. Frames are grabbed at the frame
// rate, stamped on the pause-free clock, and the first one is the zero of the take; sound from
// before it is dropped; at stop the last picture is repeated at the stop time so the movie lasts
// until the user pressed stop. The movie is fragmented MOV, so a crash loses at most the last
// fragment (one key frame interval).
class CaptureController {
public:
    struct Config {
        int pixelWidth = 0;
        int pixelHeight = 0;
        double fps = 60.0;
        bool systemAudio = false;
        bool microphone = false;
        std::optional<std::string> micDeviceID;
        friend bool operator==(const Config&, const Config&) = default;
    };

    struct Sources {
        std::unique_ptr<ScreenGrabber> screen;
        std::unique_ptr<AudioCaptureSource> systemAudio;  // required when the config asks for it
        std::unique_ptr<AudioCaptureSource> microphone;
    };

    // Counters for the benchmark and the tests.
    struct Statistics {
        int64_t ticks = 0;          // frame slots the clock offered while recording
        int64_t framesWritten = 0;  // frames handed to the encoder
        int64_t framesDropped = 0;  // slots lost: grab late by a whole interval, or encoder behind
        friend bool operator==(const Statistics&, const Statistics&) = default;
    };

    // Thrown by stop when no picture ever came.
    class NoFramesCaptured : public HalvaneError {
    public:
        NoFramesCaptured();
    };

    // Frames that may wait for the encoder; past that a frame is dropped rather than let the grab
    // fall behind.
    static constexpr int maxQueuedFrames = 6;

    CaptureController(Config config, std::filesystem::path outputURL, std::shared_ptr<PauseClock> pauseClock, Sources sources);
    ~CaptureController();

    // Opens the movie and starts the sources. Throws HalvaneError.
    void start();
    // Finishes the movie; gives its duration in seconds. Throws HalvaneError (NoFramesCaptured
    // when nothing was grabbed; the file is then removed).
    double stop();
    // Ends without a movie. Never throws.
    void abort();

    // Host time up to which microphone samples are replaced by silence.
    void setMicSilentUntil(double hostSeconds);
    Statistics statistics() const;
    // The first frame's stamp in pause-free host seconds, once there was one.
    std::optional<double> sessionStart() const;
    const Config& config() const { return config_; }

    // The first frame's stamp in pause-free host seconds; once, on the capture thread.
    std::function<void(double)> onSessionStart;
    // The source stopped by itself while recording; once, on a capture thread.
    std::function<void(const std::string&)> onRuntimeError;

private:
    struct QueuedFrame {
        QImage image;
        double time = 0;
    };

    void grabTick();
    void encodeLoop();
    void handleAudio(int track, const float* samples, size_t frames, double hostTime, bool isMicrophone);
    double continuousAudioTime(int track, double stamped, size_t frames);
    void reportRuntimeError(const std::string& description);
    void stopSources();
    void releasePipeline();

    Config config_;
    std::filesystem::path outputURL_;
    std::shared_ptr<PauseClock> pauseClock_;
    Sources sources_;
    std::unique_ptr<MovieWriter> writer_;
    std::unique_ptr<RepeatingTimer> timer_;
    std::thread encoder_;
    int systemTrack_ = -1;
    int micTrack_ = -1;

    mutable std::mutex mutex_;
    std::condition_variable queueChanged_;
    std::deque<QueuedFrame> queue_;
    bool encoderRunning_ = false;
    bool encoding_ = false;  // a frame taken off the queue is in the encoder
    bool acceptingBuffers_ = false;
    std::optional<double> micSilentUntil_;
    std::map<int, std::optional<double>> nextAudioTime_;  // movie time the next chunk of a track continues at
    std::optional<double> sessionStart_;
    std::optional<double> lastVideoTime_;  // pause-free host seconds
    QImage lastImage_;
    std::string writerError_;
    Statistics statistics_;
    double nextSlot_ = 0;  // the ideal host time of the next frame slot
};

}  // namespace halvane
