#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace halvane {

// Live sound from one source, always 48 kHz stereo 32-bit float, interleaved.
class AudioCaptureSource {
public:
    static constexpr int sampleRate = 48000;
    static constexpr int channels = 2;

    // `hostTime` is the host-clock moment the first frame of the chunk was heard.
    using SamplesCallback = std::function<void(const float* interleaved, size_t frames, double hostTime)>;
    using ErrorCallback = std::function<void(const std::string& description)>;

    virtual ~AudioCaptureSource() = default;
    // Throws HalvaneError when the source can't be opened. Callbacks come on a thread of the source.
    virtual void start(SamplesCallback onSamples, ErrorCallback onError) = 0;
    virtual void stop() = 0;
};

}  // namespace halvane
