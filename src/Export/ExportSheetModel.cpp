#include "Export/ExportSheetModel.h"

#include "Render/CanvasLayout.h"
#include "Support/Localization.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace halvane {

namespace {

int capped(std::optional<int> index, size_t count) {
    return std::clamp(index.value_or(0), 0, static_cast<int>(count) - 1);
}

int matchingShortSide(std::optional<int> stored, const std::vector<ExportSizeChoice>& items) {
    if (stored)
        for (const auto& item : items)
            if (item.shortSide == *stored) return item.shortSide;
    return ExportSheetModel::defaultShortSide;
}

std::string format(const char* pattern, double value) {
    char text[64];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

}  // namespace

std::array<std::string_view, 3> ExportSheetModel::formatLabels() {
    return {"export.format.h264", "export.format.hevc", "export.format.gif"};
}

std::vector<double> ExportSheetModel::frameRates(ExportFormat f) {
    if (f == ExportFormat::gif) return {20, 15, 10};
    return {60, 30};
}

std::vector<ExportSizeChoice> ExportSheetModel::sizes(ExportFormat f) {
    if (f == ExportFormat::gif) return {{"1080p", 1080}, {"720p", 720}, {"480p", 480}};
    return {{"export.size.source", 0}, {"4K", 2160}, {"1440p", 1440},
            {"1080p", 1080},           {"720p", 720}, {"480p", 480}};
}

std::string ExportSheetModel::fileExtension(ExportFormat f) {
    return f == ExportFormat::gif ? "gif" : "mp4";
}

ExportSelection ExportSheetModel::select(const StoredExportChoices& stored) {
    ExportSelection s;
    s.format = static_cast<ExportFormat>(capped(stored.format, formatLabels().size()));
    const bool gif = s.format == ExportFormat::gif;
    auto rates = frameRates(s.format);
    s.fps = rates[capped(gif ? stored.gifFPS : stored.movieFPS, rates.size())];
    s.shortSide = matchingShortSide(gif ? stored.gifSize : stored.movieSize, sizes(s.format));
    return s;
}

Size ExportSheetModel::canvasSize(const RecordingMeta& meta, const EditSettings& settings,
                                  int shortSide) {
    return halvane::canvasSize(meta, settings, shortSide);
}

bool ExportSheetModel::willHaveAudio(const RecordingMeta& meta, const RecordedEvents& events,
                                     const EditSettings& settings) {
    if (!settings.audioMuted && (meta.hasSystemAudio || meta.hasMicrophone)) return true;
    if (settings.clickSound != ClickSoundKind::none)
        for (const auto& c : events.clicks)
            if (c.phase == ClickPhase::down) return true;
    return settings.musicFileName.has_value();
}

int64_t ExportSheetModel::estimatedMovieBytes(Size canvas, double fps, VideoCodec codec,
                                              double outputDuration, bool withAudio) {
    double bitsPerSecond = static_cast<double>(MovieWriter::defaultBitRate(
        static_cast<int>(canvas.width), static_cast<int>(canvas.height), fps, codec));
    if (withAudio) bitsPerSecond += 192000;
    return static_cast<int64_t>(bitsPerSecond * std::max(outputDuration, 0.0) * 0.125 * 1.02);
}

std::pair<int64_t, int64_t> ExportSheetModel::estimatedGifBytes(Size canvas, double fps,
                                                                double outputDuration) {
    double base = canvas.width * canvas.height * std::max(outputDuration * fps + 1, 1.0);
    return {static_cast<int64_t>(0.15 * base), static_cast<int64_t>(0.75 * base)};
}

std::string ExportSheetModel::byteCountText(int64_t bytes) {
    const double b = static_cast<double>(std::max<int64_t>(bytes, 0));
    if (b < 1e6) return format("%.0f KB", std::round(b / 1e3));
    if (b < 1e9) return format(b < 1e7 ? "%.1f MB" : "%.0f MB", b / 1e6);
    return format("%.2f GB", b / 1e9);
}

std::string ExportSheetModel::gifEstimateText(std::pair<int64_t, int64_t> range) {
    return byteCountText(range.first) + "–" + byteCountText(range.second);
}

int ExportSheetModel::remainingSeconds(double value, double elapsedSeconds) {
    if (!(value > 0)) return 0;
    return static_cast<int>(std::max(elapsedSeconds / value - elapsedSeconds, 0.0));
}

std::string ExportSheetModel::progressText(double value, double elapsedSeconds) {
    std::string text = format("%3.0f%%", value * 100);
    if (value > 0.03) {
        int left = remainingSeconds(value, elapsedSeconds);
        char clock[32];
        std::snprintf(clock, sizeof clock, "%d:%02d", left / 60, left % 60);
        std::string remaining = Localization::string("export.progress.remaining");
        auto slot = remaining.find("%@");
        if (slot != std::string::npos) remaining.replace(slot, 2, clock);
        else remaining += " " + std::string(clock);
        text += "  ·  " + remaining;
    }
    return text;
}

}  // namespace halvane
