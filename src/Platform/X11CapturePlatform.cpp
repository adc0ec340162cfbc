#include "Platform/X11CapturePlatform.h"

#include "Platform/PulseAudioCapture.h"
#include "Platform/X11InputEventSource.h"
#include "Platform/X11ScreenGrabber.h"

#include <cmath>

namespace halvane {

X11CapturePlatform::X11CapturePlatform(const std::string& displayName)
    : connection_(std::make_shared<X11Connection>(displayName)), content_(connection_), cursor_(connection_) {}

std::unique_ptr<ScreenGrabber> X11CapturePlatform::makeDisplayGrabber(const DisplayInfo& display, const Rect& area) {
    // Every grabber has a connection of its own so the capture thread never waits on another's reply.
    auto own = std::make_shared<X11Connection>(connection_->displayName());
    QRect root(static_cast<int>(std::lround(display.frame.minX() + area.minX())), static_cast<int>(std::lround(display.frame.minY() + area.minY())),
               static_cast<int>(std::lround(area.width())), static_cast<int>(std::lround(area.height())));
    return std::make_unique<X11ScreenGrabber>(std::move(own), root);
}

std::unique_ptr<ScreenGrabber> X11CapturePlatform::makeWindowGrabber(const WindowInfo& window, QSize size) {
    auto own = std::make_shared<X11Connection>(connection_->displayName());
    return std::make_unique<X11ScreenGrabber>(std::move(own), window.id, size);
}

std::unique_ptr<AudioCaptureSource> X11CapturePlatform::makeSystemAudio() {
    return std::make_unique<PulseAudioCapture>(PulseAudioCapture::systemAudioSource);
}

std::unique_ptr<AudioCaptureSource> X11CapturePlatform::makeMicrophone(const std::optional<std::string>& deviceID) {
    return std::make_unique<PulseAudioCapture>(deviceID.value_or(""));
}

std::unique_ptr<InputEventSource> X11CapturePlatform::makeInputEvents() {
    return std::make_unique<X11InputEventSource>(connection_->displayName());
}

}  // namespace halvane
