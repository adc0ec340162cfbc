#pragma once

#include "Export/Exporter.h"
#include "Media/MovieWriter.h"
#include "Model/EditSettings.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Support/Geometry.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvane {

// One item of a size menu: its label (a localization key or a literal) and the canvas's short
// side, 0 for the source's own size.
struct ExportSizeChoice {
    std::string label;
    int shortSide = 0;
    friend bool operator==(const ExportSizeChoice&, const ExportSizeChoice&) = default;
};

// What the user chose last, as stored: absent keys were never written.
struct StoredExportChoices {
    std::optional<int> format;     // "exportFormat": index into the format menu
    std::optional<int> movieFPS;   // "exportFPS": index into the movie frame rates
    std::optional<int> gifFPS;     // "exportGIFFPS": index into the GIF frame rates
    std::optional<int> movieSize;  // "exportSize": a short side
    std::optional<int> gifSize;    // "exportGIFSize": a short side
    friend bool operator==(const StoredExportChoices&, const StoredExportChoices&) = default;
};

struct ExportSelection {
    ExportFormat format = ExportFormat::h264;
    double fps = 60;
    int shortSide = 720;
    friend bool operator==(const ExportSelection&, const ExportSelection&) = default;
};

// The logic of the export sheet, apart from its window: the menus and their stored choices, the
// canvas and the estimates it shows, and the progress line.
struct ExportSheetModel {
    static constexpr int defaultShortSide = 720;

    static std::array<std::string_view, 3> formatLabels();
    static std::vector<double> frameRates(ExportFormat format);
    static std::vector<ExportSizeChoice> sizes(ExportFormat format);
    static std::string fileExtension(ExportFormat format);  // "mp4" or "gif"

    // Indices are capped to their menus; a short side that matches no item gives 720p.
    static ExportSelection select(const StoredExportChoices& stored);

    // The canvas of the export at a short side (0 = source size): the render layer's one rule.
    static Size canvasSize(const RecordingMeta& meta, const EditSettings& settings, int shortSide);

    // Sound will be written when the recording has some and it isn't muted, when a click sound
    // and a pressed button exist, or when music is chosen.
    static bool willHaveAudio(const RecordingMeta& meta, const RecordedEvents& events,
                              const EditSettings& settings);

    // (video bit rate + 192 kbit/s of sound if any) × duration, in bytes, plus 2 % of container.
    static int64_t estimatedMovieBytes(Size canvas, double fps, VideoCodec codec,
                                       double outputDuration, bool withAudio);
    // Low and high guesses: GIF sizes depend on the picture far more than movie sizes do.
    static std::pair<int64_t, int64_t> estimatedGifBytes(Size canvas, double fps,
                                                         double outputDuration);

    // A byte count as a file size, decimal units: "0 KB", "850 KB", "12.3 MB", "1.25 GB".
    static std::string byteCountText(int64_t bytes);
    static std::string gifEstimateText(std::pair<int64_t, int64_t> range);

    // "  7%" and, once past 3 %, "  ·  " and the remaining time, guessed from the pace so far.
    static std::string progressText(double value, double elapsedSeconds);
    // Whole seconds left at the current pace, never negative.
    static int remainingSeconds(double value, double elapsedSeconds);
};

}  // namespace halvane
