#include "Export/ExportSheetModel.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

TEST(ExportSheetModel, StoredChoicesAreCappedAndUnknownSizesFallBackTo720p) {
    EXPECT_EQ(ExportSheetModel::select({}), (ExportSelection{ExportFormat::h264, 60, 720}));
    StoredExportChoices stored;
    stored.format = 7;  // capped at GIF
    stored.gifFPS = 9;  // capped at 10 fps
    stored.gifSize = 2160;  // no such GIF size
    stored.movieSize = 1080;
    EXPECT_EQ(ExportSheetModel::select(stored), (ExportSelection{ExportFormat::gif, 10, 720}));
    stored.format = 1;
    stored.movieFPS = 1;
    EXPECT_EQ(ExportSheetModel::select(stored), (ExportSelection{ExportFormat::hevc, 30, 1080}));
    stored.movieSize = 0;  // "source" is a real item
    EXPECT_EQ(ExportSheetModel::select(stored).shortSide, 0);
    stored.format = -3;
    EXPECT_EQ(ExportSheetModel::select(stored).format, ExportFormat::h264);
    EXPECT_EQ(ExportSheetModel::sizes(ExportFormat::h264).size(), 6u);
    EXPECT_EQ(ExportSheetModel::sizes(ExportFormat::gif).front(), (ExportSizeChoice{"1080p", 1080}));
    EXPECT_EQ(ExportSheetModel::fileExtension(ExportFormat::hevc), "mp4");
}

TEST(ExportSheetModel, CanvasFollowsTheShortSideEvenAboveTheSource) {
    RecordingMeta meta;
    meta.pixelWidth = 1920;
    meta.pixelHeight = 1080;
    EditSettings settings;
    EXPECT_EQ(ExportSheetModel::canvasSize(meta, settings, 2160), (Size{3840, 2160}));  // upscales
    EXPECT_EQ(ExportSheetModel::canvasSize(meta, settings, 0), (Size{1920, 1080}));
    EXPECT_EQ(ExportSheetModel::canvasSize(meta, settings, 720), (Size{1280, 720}));
}

TEST(ExportSheetModel, AudioExistsForSoundClicksOrMusic) {
    RecordingMeta meta;
    RecordedEvents events;
    EditSettings settings;
    EXPECT_FALSE(ExportSheetModel::willHaveAudio(meta, events, settings));
    meta.hasMicrophone = true;
    EXPECT_TRUE(ExportSheetModel::willHaveAudio(meta, events, settings));
    settings.audioMuted = true;
    EXPECT_FALSE(ExportSheetModel::willHaveAudio(meta, events, settings));
    settings.clickSound = ClickSoundKind::mxMaster;
    events.clicks.push_back(ClickEvent{1, 0.5, 0.5, 0, ClickPhase::up, std::nullopt});
    EXPECT_FALSE(ExportSheetModel::willHaveAudio(meta, events, settings));  // no press
    events.clicks.push_back(ClickEvent{1, 0.5, 0.5, 1, ClickPhase::down, std::nullopt});
    EXPECT_TRUE(ExportSheetModel::willHaveAudio(meta, events, settings));
    settings.clickSound = ClickSoundKind::none;
    settings.musicFileName = "music.m4a";
    EXPECT_TRUE(ExportSheetModel::willHaveAudio(meta, events, settings));
}

TEST(ExportSheetModel, EstimatesSizesFromTheBitRateOrThePixels) {
    // 1080p60 H.264: 28,284,271 bit/s + 192 kbit/s for 10 s, ×0.125 ×1.02.
    EXPECT_EQ(ExportSheetModel::estimatedMovieBytes({1920, 1080}, 60, VideoCodec::h264, 10, true),
              static_cast<int64_t>((28'284'271.0 + 192'000) * 10 * 0.125 * 1.02));
    EXPECT_EQ(ExportSheetModel::estimatedMovieBytes({1280, 720}, 30, VideoCodec::h264, 4, false),
              static_cast<int64_t>(10'000'000.0 * 4 * 0.125 * 1.02));
    auto gif = ExportSheetModel::estimatedGifBytes({100, 100}, 20, 0.95);
    EXPECT_EQ(gif, (std::pair<int64_t, int64_t>{30000, 150000}));  // 10,000 px × 20 frames
    EXPECT_EQ(ExportSheetModel::estimatedGifBytes({100, 100}, 20, 0).first, 1500);
    EXPECT_EQ(ExportSheetModel::gifEstimateText(gif), "30 KB–150 KB");
    EXPECT_EQ(ExportSheetModel::byteCountText(12'345'678), "12 MB");
    EXPECT_EQ(ExportSheetModel::byteCountText(2'345'678), "2.3 MB");
    EXPECT_EQ(ExportSheetModel::byteCountText(1'250'000'000), "1.25 GB");
}

TEST(ExportSheetModel, ProgressShowsRemainingTimeOncePastThreePercent) {
    EXPECT_EQ(ExportSheetModel::progressText(0.02, 5), "  2%");
    EXPECT_EQ(ExportSheetModel::remainingSeconds(0.25, 30), 90);
    EXPECT_EQ(ExportSheetModel::remainingSeconds(0.5, 61.9), 61);  // cut, not rounded
    EXPECT_EQ(ExportSheetModel::remainingSeconds(1.0, 10), 0);
    auto text = ExportSheetModel::progressText(0.25, 30);
    EXPECT_EQ(text.rfind(" 25%  ·  ", 0), 0u) << text;
    EXPECT_NE(text.find("1:30"), std::string::npos) << text;
}

}  // namespace
