#pragma once

#include "Platform/AudioCaptureSource.h"
#include "Platform/CursorImageSource.h"
#include "Platform/InputEventSource.h"
#include "Platform/ScreenGrabber.h"
#include "Platform/ShareableContent.h"

#include <memory>
#include <optional>
#include <string>

namespace halvane {

// Everything a take needs of the platform, made on demand: the recording coordinator asks it for
// the sources of each take and never names an X11 or PulseAudio type itself.
class CapturePlatform {
public:
    virtual ~CapturePlatform() = default;
    virtual ContentProvider& content() = 0;
    // A rectangle of a display, in display-local pixels. Throws HalvaneError.
    virtual std::unique_ptr<ScreenGrabber> makeDisplayGrabber(const DisplayInfo& display, const Rect& area) = 0;
    // One window on its own, whatever covers it, always `size` pixels. Throws HalvaneError.
    virtual std::unique_ptr<ScreenGrabber> makeWindowGrabber(const WindowInfo& window, QSize size) = 0;
    virtual std::unique_ptr<AudioCaptureSource> makeSystemAudio() = 0;
    virtual std::unique_ptr<AudioCaptureSource> makeMicrophone(const std::optional<std::string>& deviceID) = 0;
    // A fresh listener each call: every recorder owns its own.
    virtual std::unique_ptr<InputEventSource> makeInputEvents() = 0;
    // May be null when the system can't tell the cursor.
    virtual CursorImageSource* cursor() = 0;
};

}  // namespace halvane
