#include "Export/ExportAudio.h"
#include "Export/Exporter.h"
#include "Model/Project.h"
#include "Support/AtomicFile.h"
#include "support/GuiApplication.h"
#include "support/MediaProbe.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

using namespace halvane;
using test::TemporaryDirectory;

namespace {

// A take whose picture flashes white for 0.1 s at 1, 3, 5 and 7 s while a 1 kHz beep sounds.
void writeFlashAndBeepTake(const std::filesystem::path& package, bool withAudio = true) {
    std::filesystem::create_directories(package);
    const std::string flash = "gte(t\\,1)*lt(mod(t-1\\,2)\\,0.1)";
    std::string command = "ffmpeg -v error -y -f lavfi -i \"color=black:s=320x240:r=30:d=9,drawbox=c=white:t=fill:enable='" +
                          flash + "'\"";
    if (withAudio)
        command += " -f lavfi -i \"aevalsrc='if(" + flash + "\\,0.8*sin(2*PI*1000*t)\\,0)':s=48000:d=9\" -c:a aac -b:a 192k";
    command += " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 30 \"" + (package / "screen.mov").string() + "\"";
    int status = 0;
    test::runCommand(command, &status);
    ASSERT_EQ(status, 0) << command;
    RecordingMeta meta;
    meta.mode = "area";
    meta.duration = 9;
    meta.pixelWidth = 320;
    meta.pixelHeight = 240;
    meta.pointWidth = 320;
    meta.pointHeight = 240;
    meta.scale = 1;
    meta.fps = 30;
    meta.hasSystemAudio = withAudio;
    writeFileAtomically(package / "meta.json", Project::encode(meta));
    RecordedEvents events;
    for (double t : {1.0, 3.0, 5.0, 7.0}) {
        events.clicks.push_back({t, 0.5, 0.5, 0, ClickPhase::down, std::nullopt});
        events.clicks.push_back({t + 0.05, 0.5, 0.5, 0, ClickPhase::up, std::nullopt});
    }
    writeFileAtomically(package / "events.json", Project::encode(events));
}

// Plain settings: the video fills the canvas, nothing drawn over it.
EditSettings plainSettings() {
    EditSettings s;
    s.showBackground = false;
    s.padding = 0;
    s.cornerRadiusFraction = 0;
    s.showCursor = false;
    s.autoZoom = false;
    s.showKeystrokes = false;
    return s;
}

ExportOptions movieOptions(ExportFormat format = ExportFormat::h264) {
    ExportOptions o;
    o.format = format;
    o.fps = 30;
    o.canvasSize = {320, 240};
    o.preset = "ultrafast";
    return o;
}

// Start times of the bursts in a sequence of values, with a minimum gap between bursts.
std::vector<double> onsets(const std::vector<double>& values, double threshold, double rate, double minGap) {
    std::vector<double> result;
    for (size_t i = 0; i < values.size(); ++i) {
        if (values[i] < threshold) continue;
        double t = double(i) / rate;
        if (result.empty() || t - result.back() > minGap) result.push_back(t);
    }
    return result;
}

class ExporterTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { test::ensureGuiApplication(); }
    TemporaryDirectory scratch;
    std::filesystem::path package() const { return scratch / "take.halvane"; }
};

}  // namespace

TEST_F(ExporterTest, MovieMatchesTheSpeedMap) {
    writeFlashAndBeepTake(package());
    auto project = Project::load(package());
    EditSettings settings = plainSettings();
    CutSegment cut;
    cut.start = 2;
    cut.end = 4;
    settings.cuts = {cut};
    const double end = settings.speedMap(9).outputDuration();
    Exporter exporter(*project, settings, movieOptions());
    double lastProgress = 0;
    exporter.run(scratch / "out.mp4", [&](double p) { lastProgress = p; });
    EXPECT_EQ(lastProgress, 1);
    auto probe = test::probeMedia(scratch / "out.mp4");
    const auto* video = test::probeStream(probe, "video");
    const auto* audio = test::probeStream(probe, "audio");
    ASSERT_TRUE(video && audio);
    EXPECT_EQ((*video)["codec_name"], "h264");
    EXPECT_EQ((*video)["pix_fmt"], "yuv420p");
    EXPECT_EQ((*video)["width"], 320);
    EXPECT_EQ((*video)["height"], 240);
    EXPECT_EQ(std::stoll((*video)["nb_read_frames"].get<std::string>()), Exporter::movieFrameCount(end, 30));
    EXPECT_NEAR(std::stod(probe["format"]["duration"].get<std::string>()), end, 1.0 / 30 + 0.03);
    EXPECT_EQ((*audio)["codec_name"], "aac");
    EXPECT_EQ((*audio)["sample_rate"], "48000");
    EXPECT_EQ((*audio)["channels"], 2);
    EXPECT_NEAR(std::stod((*audio)["duration"].get<std::string>()), end, 1.0 / 30 + 0.03);
}

TEST_F(ExporterTest, FlashesAndBeepsStayTogetherThroughCutsAndSpeed) {
    writeFlashAndBeepTake(package());
    auto project = Project::load(package());
    EditSettings settings = plainSettings();
    CutSegment first, second;
    first.start = 1.5;
    first.end = 2.5;
    second.start = 5.5;
    second.end = 6.5;
    SpeedSegment fast;
    fast.start = 2.8;
    fast.end = 5.3;
    fast.factor = 2;
    settings.cuts = {first, second};
    settings.speeds = {fast};
    const SpeedMap map = settings.speedMap(9);
    Exporter exporter(*project, settings, movieOptions());
    exporter.run(scratch / "sync.mp4");

    auto brightness = test::frameBrightness(scratch / "sync.mp4");
    auto times = test::videoFrameTimes(scratch / "sync.mp4");
    ASSERT_EQ(brightness.size(), times.size());
    std::vector<double> flashes;
    for (size_t i = 0; i < brightness.size(); ++i)
        if (brightness[i] > 128 && (flashes.empty() || times[i] - flashes.back() > 0.3)) flashes.push_back(times[i]);
    auto sound = test::decodeAudioMono(scratch / "sync.mp4", 48000);
    std::vector<double> level(sound.begin(), sound.end());
    for (auto& v : level) v = std::fabs(v);
    auto beeps = onsets(level, 0.3, 48000, 0.3);

    ASSERT_EQ(flashes.size(), 4u);
    ASSERT_EQ(beeps.size(), 4u);
    const double frame = 1.0 / 30;
    for (size_t i = 0; i < 4; ++i) {
        const double expected = map.outputTime(1.0 + 2.0 * double(i));
        EXPECT_NEAR(flashes[i], expected, frame + 0.001) << "flash " << i;
        EXPECT_NEAR(beeps[i], flashes[i], frame) << "beep " << i;
    }
}

TEST_F(ExporterTest, HevcAndAudioOnlyWhenThereIsSound) {
    writeFlashAndBeepTake(package(), false);
    auto project = Project::load(package());
    EditSettings settings = plainSettings();
    settings.trimEnd = 2;
    {
        Exporter exporter(*project, settings, movieOptions(ExportFormat::hevc));
        exporter.run(scratch / "silent.mp4");
        auto probe = test::probeMedia(scratch / "silent.mp4");
        ASSERT_TRUE(test::probeStream(probe, "video"));
        EXPECT_EQ((*test::probeStream(probe, "video"))["codec_name"], "hevc");
        EXPECT_EQ(test::probeStream(probe, "audio"), nullptr);
    }
    // A silent take with click sounds gets a track of just the clicks.
    settings.clickSound = ClickSoundKind::magicMouse;
    Exporter exporter(*project, settings, movieOptions());
    exporter.run(scratch / "clicks.mp4");
    auto probe = test::probeMedia(scratch / "clicks.mp4");
    ASSERT_TRUE(test::probeStream(probe, "audio"));
    auto sound = test::decodeAudioMono(scratch / "clicks.mp4", 48000);
    std::vector<double> level(sound.begin(), sound.end());
    for (auto& v : level) v = std::fabs(v);
    auto clicks = onsets(level, 0.02, 48000, 0.3);
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_NEAR(clicks[0], 1.0, 0.02);
}

TEST_F(ExporterTest, GifLoopsWithOneFrameEachTick) {
    writeFlashAndBeepTake(package(), false);
    auto project = Project::load(package());
    EditSettings settings = plainSettings();
    settings.trimEnd = 1.5;
    ExportOptions options = movieOptions(ExportFormat::gif);
    options.fps = 10;
    Exporter exporter(*project, settings, options);
    exporter.run(scratch / "out.gif");
    auto probe = test::probeMedia(scratch / "out.gif");
    const auto* video = test::probeStream(probe, "video");
    ASSERT_TRUE(video);
    EXPECT_EQ((*video)["codec_name"], "gif");
    EXPECT_EQ(std::stoll((*video)["nb_read_frames"].get<std::string>()), Exporter::gifFrameCount(1.5, 10));
    std::string bytes = readFile(scratch / "out.gif");
    auto netscape = bytes.find("NETSCAPE2.0");
    ASSERT_NE(netscape, std::string::npos);
    // Sub-block: size 3, id 1, loop count 0 (for ever).
    EXPECT_EQ(bytes.substr(netscape + 11, 4), std::string("\x03\x01\x00\x00", 4));
}

TEST_F(ExporterTest, FailuresSayWhyAndLeaveNoFile) {
    writeFlashAndBeepTake(package());
    auto project = Project::load(package());
    const EditSettings settings = plainSettings();
    auto expectFailure = [&](const std::filesystem::path& destination, ExportError::Kind kind) {
        Exporter exporter(*project, settings, movieOptions());
        try {
            exporter.run(destination);
            ADD_FAILURE() << "export to " << destination << " succeeded";
        } catch (const ExportError& e) {
            EXPECT_EQ(e.kind(), kind) << e.what();
            EXPECT_FALSE(std::string(e.what()).empty());
        }
        EXPECT_FALSE(std::filesystem::exists(destination));
    };
    expectFailure(scratch / "no-such-folder" / "out.mp4", ExportError::Kind::setupFailed);

    std::ofstream(package() / "screen.mov", std::ios::trunc) << "this is not a movie";
    expectFailure(scratch / "corrupt.mp4", ExportError::Kind::setupFailed);
    std::filesystem::remove(package() / "screen.mov");
    expectFailure(scratch / "missing.mp4", ExportError::Kind::setupFailed);
}

TEST_F(ExporterTest, MusicThatIsNotSoundIsLeftOut) {
    writeFlashAndBeepTake(package(), false);
    std::ofstream(package() / "music.m4a") << "not audio at all";
    auto project = Project::load(package());
    EditSettings settings = plainSettings();
    settings.trimEnd = 1;
    settings.musicFileName = "music.m4a";
    Exporter exporter(*project, settings, movieOptions());
    exporter.run(scratch / "out.mp4");
    EXPECT_TRUE(std::filesystem::exists(scratch / "out.mp4"));
}

TEST_F(ExporterTest, CancelRemovesThePartialFile) {
    writeFlashAndBeepTake(package());
    auto project = Project::load(package());
    for (auto format : {ExportFormat::h264, ExportFormat::gif}) {
        Exporter exporter(*project, plainSettings(), movieOptions(format));
        const auto destination = scratch / (format == ExportFormat::gif ? "c.gif" : "c.mp4");
        try {
            exporter.run(destination, [&](double p) {
                if (p > 0.1) exporter.cancel();
            });
            ADD_FAILURE() << "a cancelled export succeeded";
        } catch (const ExportError& e) {
            EXPECT_EQ(e.kind(), ExportError::Kind::cancelled);
        }
        EXPECT_FALSE(std::filesystem::exists(destination));
    }
}

TEST(ExportAudioRules, ClicksInsideCutsOrOutsideTheTrimAreDropped) {
    RecordedEvents events;
    for (double t : {0.5, 2.0, 3.0, 6.0, 9.5}) events.clicks.push_back({t, 0, 0, 0, ClickPhase::down, std::nullopt});
    events.clicks.push_back({2.5, 0, 0, 0, ClickPhase::up, std::nullopt});
    EditSettings settings;
    settings.trimStart = 1;
    settings.trimEnd = 9;
    CutSegment cut;
    cut.start = 2.5;
    cut.end = 3.0;
    settings.cuts = {cut};
    SpeedMap map = settings.speedMap(10);
    auto times = ExportAudio::clickTimes(events, map);
    // 0.5 and 9.5 are outside the trim; 3.0 is the cut's end, which the cut holds.
    ASSERT_EQ(times.size(), 2u);
    EXPECT_NEAR(times[0], map.outputTime(2.0), 1e-9);
    EXPECT_NEAR(times[1], map.outputTime(6.0), 1e-9);
}

TEST(ExportAudioRules, RangesCarrySpeedAndHeldVolume) {
    EditSettings settings;
    SpeedSegment almost, twice;
    almost.start = 1;
    almost.end = 2;
    almost.factor = 1.00005;
    twice.start = 3;
    twice.end = 4;
    twice.factor = 2;
    settings.speeds = {almost, twice};
    auto ranges = ExportAudio::keptRanges(settings.speedMap(5), 1.5);
    double out = 0;
    for (const auto& r : ranges) {
        EXPECT_EQ(r.volume, 1);  // never boosted
        EXPECT_TRUE(r.rate == 1 || r.rate == 2);
        out += (r.sourceEnd - r.sourceStart) / r.rate;
    }
    EXPECT_NEAR(out, settings.speedMap(5).outputDuration(), 1e-3);
    EXPECT_EQ(ExportAudio::keptRanges(settings.speedMap(5), 0).front().volume, 0);
}

TEST(ExportFrameCounts, EndsThatFallOnAFrameKeepIt) {
    EXPECT_EQ(Exporter::movieFrameCount(1.0, 30), 31);
    EXPECT_EQ(Exporter::movieFrameCount(0.0, 30), 1);
    EXPECT_EQ(Exporter::gifFrameCount(1.0, 20), 21);
    EXPECT_EQ(Exporter::gifFrameCount(0.0, 20), 1);
}
