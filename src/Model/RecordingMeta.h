#pragma once

#include "Support/Date.h"
#include "Support/Json.h"

#include <optional>
#include <string>
#include <vector>

namespace halvane {

// One video of a multi-source take.
struct RecordingSource {
    std::string fileName = "screen.mov";
    std::string name;
    int pixelWidth = 0;
    int pixelHeight = 0;
    double pointWidth = 0;
    double pointHeight = 0;
    double startOffset = 0;  // seconds from the recording's zero to this video's first frame

    friend bool operator==(const RecordingSource&, const RecordingSource&) = default;
};

enum class MultiSourceKind { windows, displays };
constexpr auto enumNames(MultiSourceKind) { return std::array<std::string_view, 2>{"windows", "displays"}; }

// "meta.json": written once by the take; only rename changes it afterwards.
struct RecordingMeta {
    int version = 1;  // 2 for a multi-source take; not a gate
    std::optional<std::string> name;
    std::string mode = "display";  // display, window, area, device, windows, displays
    std::string sourceName = "Display";
    Date createdAt = std::chrono::system_clock::now();
    double duration = 0;
    int pixelWidth = 0;
    int pixelHeight = 0;
    double pointWidth = 0;
    double pointHeight = 0;
    double scale = 2.0;
    double fps = 60.0;
    bool hasSystemAudio = false;
    bool hasMicrophone = false;
    bool hasCamera = false;
    double cameraStartOffset = 0;
    std::vector<RecordingSource> sources;

    // Trimmed text, or nothing when it can't name a take (empty, "." or "..", over 240 UTF-8 bytes,
    // a control character, "/" or ":").
    static std::optional<std::string> validatedName(const std::string& raw);

    friend bool operator==(const RecordingMeta&, const RecordingMeta&) = default;
};

void fromJson(const Json& j, RecordingSource& out);
Json toJson(const RecordingSource& v);
// Every key lenient; only a top level that is no object throws.
void fromJson(const Json& j, RecordingMeta& out);
Json toJson(const RecordingMeta& v);

}  // namespace halvane
