#pragma once

#include "Platform/AudioCaptureSource.h"

#include <atomic>
#include <string>

struct pa_threaded_mainloop;
struct pa_context;
struct pa_stream;

namespace halvane {

// Records one PulseAudio source. The system's sound is the default sink's monitor, named
// `systemAudioSource`; the default microphone is an empty device name.
class PulseAudioCapture : public AudioCaptureSource {
public:
    static constexpr const char* systemAudioSource = "@DEFAULT_MONITOR@";

    explicit PulseAudioCapture(std::string deviceName = {});
    ~PulseAudioCapture() override;

    void start(SamplesCallback onSamples, ErrorCallback onError) override;
    void stop() override;

private:
    static void contextStateChanged(pa_context* context, void* self);
    static void streamStateChanged(pa_stream* stream, void* self);
    static void streamReadable(pa_stream* stream, size_t bytes, void* self);
    void readAvailable();
    void waitUntilReady();
    void reportFailure(const std::string& what);
    void tearDown();

    std::string deviceName_;
    SamplesCallback onSamples_;
    ErrorCallback onError_;
    pa_threaded_mainloop* loop_ = nullptr;
    pa_context* context_ = nullptr;
    pa_stream* stream_ = nullptr;
    std::atomic<bool> stopping_{false};
    bool reported_ = false;
};

}  // namespace halvane
