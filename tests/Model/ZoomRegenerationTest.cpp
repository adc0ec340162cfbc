#include "Model/Project.h"
#include "Model/ZoomRegeneration.h"

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

const char* oneClick =
    R"({"clicks":[{"t":5,"x":0.3,"y":0.4,"button":0,"phase":"down"},{"t":5.2,"x":0.3,"y":0.4,"button":0,"phase":"up"}]})";

fs::path makePackage(const test::TemporaryDirectory& dir, const std::string& meta, const std::string& events = oneClick) {
    fs::path url = dir / "Take.halvane";
    fs::create_directories(url);
    std::ofstream(url / "meta.json") << meta;
    std::ofstream(url / "events.json") << events;
    return url;
}

ZoomSegment manualZoom(double start) {
    ZoomSegment z;
    z.start = start;
    z.end = start + 2;
    z.isAuto = false;
    return z;
}

}  // namespace

TEST(GeneratedCameraTimelines, PackageWithoutEditGetsZoomsFromClicks) {
    test::TemporaryDirectory dir;
    auto project = Project::load(makePackage(dir, R"({"mode":"display","pointWidth":1440,"duration":30})"));
    const auto& zooms = project->editState().settings().zooms;
    ASSERT_EQ(zooms.size(), 1u);
    EXPECT_DOUBLE_EQ(zooms[0].start, 4.85);
    EXPECT_DOUBLE_EQ(zooms[0].end, 6.2);
    EXPECT_EQ(zooms[0].target, (Point{0.3, 0.4}));
    EXPECT_DOUBLE_EQ(zooms[0].level, 1.75);
    EXPECT_TRUE(zooms[0].isAuto);

    // 300 points wide: level 1, which generates nothing.
    test::TemporaryDirectory narrow;
    auto small = Project::load(makePackage(narrow, R"({"mode":"display","pointWidth":300,"duration":30})"));
    EXPECT_TRUE(small->editState().settings().zooms.empty());
}

TEST(GeneratedCameraTimelines, MultiSourceTakeGetsFocusSwitchesAndSourceZooms) {
    test::TemporaryDirectory dir;
    auto url = makePackage(dir, R"({"mode":"windows","version":2,"duration":30,"sources":[{"fileName":"screen.mov"},{"fileName":"screen-1.mov"}]})",
                           R"({"focus":[{"t":6,"source":1}],
                              "clicks":[{"t":12,"x":0.5,"y":0.5,"button":0,"phase":"down","source":1},
                                        {"t":12.1,"x":0.5,"y":0.5,"button":0,"phase":"up","source":1}]})");
    auto project = Project::load(url);
    const auto& s = project->editState().settings();
    ASSERT_EQ(s.focusSwitches.size(), 1u);
    EXPECT_EQ(s.focusSwitches[0].source, 1);
    EXPECT_DOUBLE_EQ(s.focusSwitches[0].start, 6 - 1.85);
    ASSERT_EQ(s.zooms.size(), 1u);
    EXPECT_EQ(s.zooms[0].source, 1);
}

TEST(ZoomRegeneration, KeepsManualZoomsAndIsOneUndoStep) {
    test::TemporaryDirectory dir;
    auto project = Project::load(makePackage(dir, R"({"mode":"area","pointWidth":1440,"duration":30})"));
    project->editState().edit("undo.test", EditState::Change::zooms, [](EditSettings& s) {
        s.zooms = {manualZoom(10), manualZoom(1)};
        s.zooms.push_back([] {
            ZoomSegment z;
            z.start = 20;
            z.end = 22;
            z.isAuto = true;
            return z;
        }());
        s.autoZoomLevel = 3;
    });
    int heard = 0;
    project->editState().onChange.push_back([&](EditState::Change c) { heard += c == EditState::Change::zooms; });
    ZoomRegeneration::regenerate(*project);
    const auto& zooms = project->editState().settings().zooms;
    ASSERT_EQ(zooms.size(), 3u);
    EXPECT_DOUBLE_EQ(zooms[0].start, 1);
    EXPECT_TRUE(zooms[1].isAuto);
    EXPECT_DOUBLE_EQ(zooms[1].start, 4.85);
    // Capped by the captured width: 1440 / 400.
    EXPECT_DOUBLE_EQ(zooms[1].level, 3);
    EXPECT_DOUBLE_EQ(zooms[2].start, 10);
    EXPECT_EQ(heard, 1);
    ASSERT_TRUE(project->editState().undo());
    EXPECT_EQ(project->editState().settings().zooms.size(), 3u);
    EXPECT_DOUBLE_EQ(project->editState().settings().zooms[2].start, 20);
}

TEST(ZoomRegeneration, LevelCap) {
    RecordingMeta meta;
    EditSettings s;
    s.autoZoomLevel = 3;
    meta.pointWidth = 800;
    EXPECT_DOUBLE_EQ(ZoomRegeneration::level(meta, s, false), 2);
    EXPECT_DOUBLE_EQ(ZoomRegeneration::level(meta, s, true), 3);
    meta.pointWidth = 200;
    EXPECT_DOUBLE_EQ(ZoomRegeneration::level(meta, s, false), 1);
    meta.pointWidth = 0;
    EXPECT_DOUBLE_EQ(ZoomRegeneration::level(meta, s, false), 3);
}
