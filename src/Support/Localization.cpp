#include "Support/Localization.h"

#include <array>
#include <utility>

namespace halvane {

namespace {
constexpr std::pair<std::string_view, std::string_view> englishTable[] = {
    {"recording.rename.invalidName",
     "That name can't be used. Names can't be empty, contain \"/\" or \":\", or be longer than 240 bytes."},
    {"error.screenRecordingMissing", "The screen can't be recorded: no X server answers."},
    {"error.displayUnavailable", "The display to record is not available."},
    {"error.windowOffscreen", "The window to record is gone or off screen."},
    {"error.captureAreaTooSmall", "The area to record is too small (at least 64 pixels each way)."},
    {"error.recordingFailed", "Recording failed: %@"},
    {"error.noVideoFrames", "No video frames were captured."},
    {"error.recordingTooShort", "The recording was too short to keep."},
    {"error.stoppedEarly", "The recording stopped early: %@ What was captured up to then was saved."},
    {"error.saveFailed", "The recording could not be saved: %@"},
    {"error.export.setupFailed", "The export could not start: %@"},
    {"error.export.renderFailed", "A frame of the export could not be made."},
    {"error.export.cancelled", "The export was cancelled."},
};
}

std::string Localization::string(std::string_view key) {
    for (const auto& [k, v] : englishTable)
        if (k == key) return std::string(v);
    return std::string(key);
}

std::string Localization::format(std::string_view key, std::string_view argument) {
    std::string text = string(key);
    auto at = text.find("%@");
    if (at == std::string::npos) return text;
    return text.replace(at, 2, argument);
}

}  // namespace halvane
