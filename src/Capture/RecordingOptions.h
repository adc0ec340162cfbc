#pragma once

#include <optional>
#include <string>

namespace halvane {

struct RecordingOptions {
    bool systemAudio = false;
    bool microphone = false;
    std::optional<std::string> micDeviceID;
    std::optional<std::string> cameraDeviceID;  // absent: no camera track
    bool recordKeystrokes = true;
    int countdownSeconds = 0;  // under 1: no countdown
    bool hideDesktopIcons = true;
    friend bool operator==(const RecordingOptions&, const RecordingOptions&) = default;
};

}  // namespace halvane
