#pragma once

// Stand-ins for the platform interfaces, driven by the test: a content list and pointer the test
// sets, a grabber that paints numbered frames, input and audio that the test pushes.

#include "Platform/AudioCaptureSource.h"
#include "Platform/CursorImageSource.h"
#include "Platform/InputEventSource.h"
#include "Platform/ScreenGrabber.h"
#include "Platform/ShareableContent.h"
#include "Support/HalvaneError.h"

#include <atomic>
#include <mutex>

namespace halvane::test {

class FakeContentProvider : public ContentProvider {
public:
    ShareableContent current() override {
        std::lock_guard lock(mutex);
        if (failing) throw HalvaneError("content unavailable", 1);
        return content;
    }
    std::optional<Point> pointerLocation() override {
        std::lock_guard lock(mutex);
        return pointer;
    }
    void setPointer(std::optional<Point> p) {
        std::lock_guard lock(mutex);
        pointer = p;
    }
    void setContent(ShareableContent c) {
        std::lock_guard lock(mutex);
        content = std::move(c);
    }

    std::mutex mutex;
    ShareableContent content;
    std::optional<Point> pointer = Point{0, 0};
    bool failing = false;
};

// Each grab is a grey picture whose level counts the grabs, so a test can tell frames apart.
class FakeScreenGrabber : public ScreenGrabber {
public:
    explicit FakeScreenGrabber(QSize size) : size_(size) {}
    QSize pixelSize() const override { return size_; }
    QImage grab() override {
        int n = grabs++;
        if (failAfter >= 0 && n >= failAfter) throw HalvaneError("display disconnected", 1);
        QImage image(size_, QImage::Format_RGB32);
        image.fill(QColor(n % 256, n % 256, n % 256));
        return image;
    }
    std::atomic<int> grabs{0};
    std::atomic<int> failAfter{-1};

private:
    QSize size_;
};

class FakeInputEventSource : public InputEventSource {
public:
    bool start(std::function<void(const InputEvent&)> onEvent) override {
        if (!available) return false;
        std::lock_guard lock(mutex);
        handler = std::move(onEvent);
        return true;
    }
    void stop() override {
        std::lock_guard lock(mutex);
        handler = nullptr;
    }
    void send(const InputEvent& e) {
        std::lock_guard lock(mutex);
        if (handler) handler(e);
    }
    bool available = true;
    std::mutex mutex;
    std::function<void(const InputEvent&)> handler;
};

class FakeCursorImageSource : public CursorImageSource {
public:
    std::optional<CursorImage> current() override {
        std::lock_guard lock(mutex);
        return image;
    }
    void set(std::optional<CursorImage> i) {
        std::lock_guard lock(mutex);
        image = std::move(i);
    }
    std::mutex mutex;
    std::optional<CursorImage> image;
};

class FakeAudioCaptureSource : public AudioCaptureSource {
public:
    void start(SamplesCallback onSamples, ErrorCallback onError) override {
        if (failStart) throw HalvaneError("no sound server", 1);
        std::lock_guard lock(mutex);
        samples = std::move(onSamples);
        errors = std::move(onError);
    }
    void stop() override {
        std::lock_guard lock(mutex);
        samples = nullptr;
        errors = nullptr;
    }
    void push(const std::vector<float>& interleaved, double hostTime) {
        std::lock_guard lock(mutex);
        if (samples) samples(interleaved.data(), interleaved.size() / channels, hostTime);
    }
    void fail(const std::string& why) {
        std::lock_guard lock(mutex);
        if (errors) errors(why);
    }
    bool failStart = false;
    std::mutex mutex;
    SamplesCallback samples;
    ErrorCallback errors;
};

}  // namespace halvane::test
