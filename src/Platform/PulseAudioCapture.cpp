#include "Platform/PulseAudioCapture.h"

#include "Support/Clock.h"
#include "Support/HalvaneError.h"

#include <pulse/pulseaudio.h>

namespace halvane {

PulseAudioCapture::PulseAudioCapture(std::string deviceName) : deviceName_(std::move(deviceName)) {}

PulseAudioCapture::~PulseAudioCapture() {
    stop();
}

void PulseAudioCapture::start(SamplesCallback onSamples, ErrorCallback onError) {
    onSamples_ = std::move(onSamples);
    onError_ = std::move(onError);
    stopping_ = false;
    loop_ = pa_threaded_mainloop_new();
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Halvane");
    pa_context_set_state_callback(context_, &PulseAudioCapture::contextStateChanged, this);
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        std::string why = pa_strerror(pa_context_errno(context_));
        tearDown();
        throw HalvaneError("No sound server to record from: " + why + ".", 1);
    }
    pa_threaded_mainloop_lock(loop_);
    pa_threaded_mainloop_start(loop_);
    try {
        waitUntilReady();
    } catch (...) {
        pa_threaded_mainloop_unlock(loop_);
        tearDown();
        throw;
    }
    pa_threaded_mainloop_unlock(loop_);
}

// Runs with the loop locked: connects the context, then the record stream, waiting on each.
void PulseAudioCapture::waitUntilReady() {
    for (;;) {
        auto state = pa_context_get_state(context_);
        if (state == PA_CONTEXT_READY) break;
        if (!PA_CONTEXT_IS_GOOD(state))
            throw HalvaneError(std::string("No sound server to record from: ") + pa_strerror(pa_context_errno(context_)) + ".", 1);
        pa_threaded_mainloop_wait(loop_);
    }
    pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32LE, static_cast<uint32_t>(sampleRate), static_cast<uint8_t>(channels)};
    stream_ = pa_stream_new(context_, "Halvane capture", &sampleFormat, nullptr);
    pa_stream_set_state_callback(stream_, &PulseAudioCapture::streamStateChanged, this);
    pa_stream_set_read_callback(stream_, &PulseAudioCapture::streamReadable, this);
    // Small fragments keep the stamp of each chunk close to the moment it was heard.
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(20000, &sampleFormat));
    auto flags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_INTERPOLATE_TIMING |
                                                PA_STREAM_AUTO_TIMING_UPDATE);
    const char* device = deviceName_.empty() ? nullptr : deviceName_.c_str();
    if (pa_stream_connect_record(stream_, device, &attributes, flags) < 0)
        throw HalvaneError("Cannot record from \"" + deviceName_ + "\": " + pa_strerror(pa_context_errno(context_)) + ".", 1);
    for (;;) {
        auto state = pa_stream_get_state(stream_);
        if (state == PA_STREAM_READY) return;
        if (!PA_STREAM_IS_GOOD(state))
            throw HalvaneError("Cannot record from \"" + (deviceName_.empty() ? std::string("default source") : deviceName_) +
                                   "\": " + pa_strerror(pa_context_errno(context_)) + ".",
                               1);
        pa_threaded_mainloop_wait(loop_);
    }
}

void PulseAudioCapture::stop() {
    if (!loop_) return;
    stopping_ = true;
    tearDown();
}

void PulseAudioCapture::tearDown() {
    if (!loop_) return;
    pa_threaded_mainloop_lock(loop_);
    if (stream_) {
        pa_stream_set_read_callback(stream_, nullptr, nullptr);
        pa_stream_set_state_callback(stream_, nullptr, nullptr);
        pa_stream_disconnect(stream_);
        pa_stream_unref(stream_);
        stream_ = nullptr;
    }
    if (context_) {
        pa_context_set_state_callback(context_, nullptr, nullptr);
        pa_context_disconnect(context_);
        pa_context_unref(context_);
        context_ = nullptr;
    }
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
    loop_ = nullptr;
}

void PulseAudioCapture::contextStateChanged(pa_context* context, void* self) {
    auto* capture = static_cast<PulseAudioCapture*>(self);
    auto state = pa_context_get_state(context);
    if (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) capture->reportFailure("the sound server went away");
    pa_threaded_mainloop_signal(capture->loop_, 0);
}

void PulseAudioCapture::streamStateChanged(pa_stream* stream, void* self) {
    auto* capture = static_cast<PulseAudioCapture*>(self);
    auto state = pa_stream_get_state(stream);
    if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED) capture->reportFailure("the sound source went away");
    pa_threaded_mainloop_signal(capture->loop_, 0);
}

void PulseAudioCapture::streamReadable(pa_stream*, size_t, void* self) {
    static_cast<PulseAudioCapture*>(self)->readAvailable();
}

void PulseAudioCapture::reportFailure(const std::string& what) {
    // Only a stream that was running and not being stopped has something to report.
    if (stopping_ || reported_ || !onError_ || !stream_ || pa_stream_get_state(stream_) == PA_STREAM_CREATING) return;
    reported_ = true;
    onError_("Audio capture stopped: " + what + ".");
}

void PulseAudioCapture::readAvailable() {
    const size_t frameBytes = sizeof(float) * channels;
    while (pa_stream_readable_size(stream_) > 0) {
        const void* data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(stream_, &data, &bytes) < 0 || bytes == 0) return;
        double now = systemUptime();
        size_t frames = bytes / frameBytes;
        // Fragments are 20 ms and read as soon as they are complete, so a chunk's last frame was
        // heard just now. The stream's latency report is not used: for a sink's monitor it gives
        // the sink's configured latency (0.65 s on a null sink), a delay the monitor never has.
        double firstFrameTime = now - static_cast<double>(frames) / sampleRate;
        if (data && frames > 0 && onSamples_) onSamples_(static_cast<const float*>(data), frames, firstFrameTime);
        pa_stream_drop(stream_);
    }
}

}  // namespace halvane
