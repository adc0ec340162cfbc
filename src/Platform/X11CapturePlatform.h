#pragma once

#include "Platform/CapturePlatform.h"
#include "Platform/X11Connection.h"
#include "Platform/X11ContentProvider.h"
#include "Platform/X11CursorImageSource.h"

namespace halvane {

// The X server in DISPLAY (or the one named) and the PulseAudio server of the session.
class X11CapturePlatform : public CapturePlatform {
public:
    // Throws HalvaneError when no X server answers.
    explicit X11CapturePlatform(const std::string& displayName = {});

    ContentProvider& content() override { return content_; }
    std::unique_ptr<ScreenGrabber> makeDisplayGrabber(const DisplayInfo& display, const Rect& area) override;
    std::unique_ptr<ScreenGrabber> makeWindowGrabber(const WindowInfo& window, QSize size) override;
    std::unique_ptr<AudioCaptureSource> makeSystemAudio() override;
    std::unique_ptr<AudioCaptureSource> makeMicrophone(const std::optional<std::string>& deviceID) override;
    std::unique_ptr<InputEventSource> makeInputEvents() override;
    CursorImageSource* cursor() override { return &cursor_; }

private:
    std::shared_ptr<X11Connection> connection_;
    X11ContentProvider content_;
    X11CursorImageSource cursor_;
};

}  // namespace halvane
