#pragma once

#include "Platform/CapturePlatform.h"
#include "support/FakePlatform.h"

#include <vector>

namespace halvane::test {

// A platform of fakes: the test sets the content, and can reach every grabber, audio source and
// input listener the code under test made.
class FakeCapturePlatform : public CapturePlatform {
public:
    ContentProvider& content() override { return contentProvider; }
    std::unique_ptr<ScreenGrabber> makeDisplayGrabber(const DisplayInfo&, const Rect& area) override {
        return keep(QSize(static_cast<int>(area.width()), static_cast<int>(area.height())));
    }
    std::unique_ptr<ScreenGrabber> makeWindowGrabber(const WindowInfo& window, QSize size) override {
        if (failingWindow && *failingWindow == window.id) throw HalvaneError("window grab failed", 1);
        return keep(size);
    }
    std::unique_ptr<AudioCaptureSource> makeSystemAudio() override {
        auto source = std::make_unique<FakeAudioCaptureSource>();
        source->failStart = failAudio;
        audioSources.push_back(source.get());
        return source;
    }
    std::unique_ptr<AudioCaptureSource> makeMicrophone(const std::optional<std::string>&) override { return makeSystemAudio(); }
    std::unique_ptr<InputEventSource> makeInputEvents() override {
        auto source = std::make_unique<FakeInputEventSource>();
        inputSources.push_back(source.get());
        return source;
    }
    CursorImageSource* cursor() override { return &cursorSource; }

    FakeContentProvider contentProvider;
    FakeCursorImageSource cursorSource;
    std::vector<FakeScreenGrabber*> grabbers;  // alive only as long as the take that made them
    std::vector<QSize> grabberSizes;
    std::vector<FakeAudioCaptureSource*> audioSources;
    std::vector<FakeInputEventSource*> inputSources;
    std::optional<uint32_t> failingWindow;
    bool failAudio = false;

private:
    std::unique_ptr<ScreenGrabber> keep(QSize size) {
        auto grabber = std::make_unique<FakeScreenGrabber>(size);
        grabbers.push_back(grabber.get());
        grabberSizes.push_back(size);
        return grabber;
    }
};

}  // namespace halvane::test
