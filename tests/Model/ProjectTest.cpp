#include "Model/Project.h"

#include "Support/AtomicFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

const char* clickEvents = R"({"clicks":[{"t":1,"x":0.5,"y":0.5,"button":0,"phase":"down"}]})";

struct Package {
    test::TemporaryDirectory dir;
    fs::path url = dir / "Take.halvane";

    explicit Package(const std::string& meta = R"({"mode":"display","pointWidth":1440,"duration":5})",
                     const std::string& events = clickEvents) {
        fs::create_directories(url);
        put("meta.json", meta);
        put("events.json", events);
    }
    void put(const std::string& name, const std::string& text) const { std::ofstream(url / name) << text; }
    std::string read(const std::string& name) const { return readFile(url / name); }
};

std::string errorOf(const fs::path& url) {
    try {
        Project::load(url);
    } catch (const HalvaneError& e) {
        return e.what();
    }
    return {};
}

TEST(ProjectLoad, WithoutEditFileGetsGeneratedSettingsAndWritesNothing) {
    Package p;
    auto project = Project::load(p.url);
    const EditSettings& s = project->editState().settings();
    EXPECT_FALSE(s.showBackground);
    EXPECT_DOUBLE_EQ(s.padding, 0);
    EXPECT_DOUBLE_EQ(s.cornerRadiusFraction, 0);
    EXPECT_TRUE(s.autoZoom);
    EXPECT_DOUBLE_EQ(s.autoZoomLevel, 1.75);
    EXPECT_EQ(project->events().clicks.size(), 1u);
    EXPECT_FALSE(project->transcript());
    EXPECT_FALSE(fs::exists(p.url / "edit.json"));
    EXPECT_EQ(project->editState().history().limit(), 200u);
    EXPECT_DOUBLE_EQ(project->editState().history().coalescingWindow(), 1.0);
}

TEST(ProjectLoad, DamagedEditAndTranscriptFallBackQuietly) {
    Package p(R"({"mode":"device"})");
    p.put("edit.json", "[\"not an object\"]");
    p.put("transcript.json", R"({"locale":"en-US"})");
    auto project = Project::load(p.url);
    EXPECT_TRUE(project->editState().settings().showBackground);
    EXPECT_FALSE(project->editState().settings().showCursor);
    EXPECT_FALSE(project->editState().settings().autoZoom);
    EXPECT_FALSE(project->transcript());
}

TEST(ProjectLoad, MissingOrNonObjectRecordsFailNamingTheFile) {
    Package p;
    p.put("meta.json", "42");
    std::string message = errorOf(p.url);
    EXPECT_NE(message.find("meta.json"), std::string::npos) << message;
    EXPECT_NE(message.find("JSON object"), std::string::npos) << message;

    fs::remove(p.url / "meta.json");
    message = errorOf(p.url);
    EXPECT_NE(message.find("meta.json"), std::string::npos) << message;

    Package q;
    fs::remove(q.url / "events.json");
    message = errorOf(q.url);
    EXPECT_NE(message.find("events.json"), std::string::npos) << message;
}

TEST(ProjectSave, EditEventsAndTranscriptReadBack) {
    Package p;
    auto project = Project::load(p.url);
    project->editState().edit("undo.padding", EditState::Change::appearance, [](EditSettings& s) { s.padding = 0.3; });
    project->saveEdit();
    project->events().keys.push_back({2.0, "K", 0});
    project->saveEvents();
    Transcript t{"en-US", {}};
    project->setTranscript(t);
    project->saveTranscript();

    auto again = Project::load(p.url);
    EXPECT_EQ(again->editState().settings(), project->editState().settings());
    EXPECT_EQ(again->events(), project->events());
    EXPECT_EQ(again->transcript(), t);

    project->setTranscript(std::nullopt);
    project->saveTranscript();
    EXPECT_FALSE(fs::exists(p.url / "transcript.json"));
    project->saveTranscript();  // nothing to remove: still quiet
}

TEST(ProjectSave, FailuresLeaveNoPartialFile) {
    Package p;
    auto project = Project::load(p.url);
    fs::remove_all(p.url);
    EXPECT_THROW(project->saveEvents(), HalvaneError);
    EXPECT_NO_THROW(project->saveEdit());
    EXPECT_FALSE(fs::exists(p.url));
}

TEST(ProjectRename, BlankOrCurrentNamesChangeNothing) {
    Package p;
    auto project = Project::load(p.url);
    int renamed = 0;
    project->onRenamed = [&](const Project&) { ++renamed; };
    std::string before = p.read("meta.json");
    project->rename("   \n");
    project->rename(" Take ");
    EXPECT_FALSE(project->meta().name);
    EXPECT_EQ(p.read("meta.json"), before);
    EXPECT_EQ(renamed, 0);
}

TEST(ProjectRename, StoresTheTrimmedNameAndKeepsTheDirectory) {
    Package p;
    auto project = Project::load(p.url);
    int renamed = 0;
    project->onRenamed = [&](const Project&) { ++renamed; };
    project->rename("  Launch demo\t");
    EXPECT_EQ(project->meta().name, "Launch demo");
    EXPECT_EQ(Project::load(p.url)->meta().name, "Launch demo");
    EXPECT_TRUE(fs::is_directory(p.url));
    EXPECT_EQ(renamed, 1);
    EXPECT_EQ(project->displayName(), "Launch demo");
}

TEST(ProjectRename, UnusableNamesThrowAndWriteNothing) {
    Package p;
    auto project = Project::load(p.url);
    std::string before = p.read("meta.json");
    try {
        project->rename("a/b");
        FAIL() << "expected a rename error";
    } catch (const Project::RenameError& e) {
        EXPECT_EQ(e.kind(), Project::RenameError::Kind::invalidName);
        EXPECT_FALSE(std::string(e.what()).empty());
    }
    EXPECT_EQ(p.read("meta.json"), before);

    fs::remove_all(p.url);  // the write itself fails: meta stays as it was
    EXPECT_THROW(project->rename("Fine name"), HalvaneError);
    EXPECT_FALSE(project->meta().name);
}

TEST(RecordingMetaNames, ValidationFollowsBytesAndUnicodeCategories) {
    EXPECT_EQ(RecordingMeta::validatedName(std::string(240, 'a')), std::string(240, 'a'));
    EXPECT_FALSE(RecordingMeta::validatedName(std::string(241, 'a')));
    std::string fourByte = "\xF0\x9F\x8E\xAC";  // U+1F3AC
    std::string eighty;
    for (int i = 0; i < 80; ++i) eighty += fourByte;
    EXPECT_FALSE(RecordingMeta::validatedName(eighty));
    EXPECT_TRUE(RecordingMeta::validatedName(fourByte));
    for (const char* bad : {"a/b", "a:b", "..", ".", "a\tb", "", " \n ", "zero\xE2\x80\x8Bwidth", "bad\xFFutf"})
        EXPECT_FALSE(RecordingMeta::validatedName(bad)) << bad;
    // No-break and ideographic spaces are white space at the ends, fine inside.
    EXPECT_EQ(RecordingMeta::validatedName("\xC2\xA0Take\xE3\x80\x80one\xE3\x80\x80"), "Take\xE3\x80\x80one");
}

TEST(ProjectDefaults, ClicksGiveZoomsUnlessTheCaptureIsNarrow) {
    Package wide;  // a display take 1440 points wide with one click
    auto project = Project::load(wide.url);
    const EditSettings& s = project->editState().settings();
    EXPECT_FALSE(s.showBackground);
    EXPECT_DOUBLE_EQ(s.padding, 0);
    ASSERT_FALSE(s.zooms.empty());
    EXPECT_TRUE(s.zooms[0].isAuto);
    EXPECT_DOUBLE_EQ(s.zooms[0].level, 1.75);
    EXPECT_TRUE(s.focusSwitches.empty());

    Package narrow(R"({"mode":"display","pointWidth":300,"duration":5})");
    EXPECT_TRUE(Project::load(narrow.url)->editState().settings().zooms.empty());
}

TEST(ProjectDefaults, FramingAndZoomLevelFollowTheTake) {
    RecordingMeta window;
    window.mode = "window";
    EditSettings s = Project::defaultSettings(window, {});
    EXPECT_TRUE(s.showBackground);
    EXPECT_DOUBLE_EQ(s.padding, 0.07);
    EXPECT_DOUBLE_EQ(s.cornerRadiusFraction, 0.016);
    EXPECT_TRUE(s.showCursor);

    RecordingMeta m;
    m.pointWidth = 300;
    EXPECT_DOUBLE_EQ(Project::generatedZoomLevel(m), 1.0);
    m.pointWidth = 600;
    EXPECT_DOUBLE_EQ(Project::generatedZoomLevel(m), 1.5);
    m.pointWidth = 0;
    EXPECT_DOUBLE_EQ(Project::generatedZoomLevel(m), 1.75);
    m.pointWidth = 300;
    m.sources = {RecordingSource{}, RecordingSource{}};
    EXPECT_DOUBLE_EQ(Project::generatedZoomLevel(m), 1.75);
}

TEST(ProjectSources, MultiWindowNeedsEveryFurtherVideo) {
    Package p(R"({"sources":[{"fileName":"missing-first.mov"},{"fileName":"screen-2.mov"},{"fileName":"screen-3.mov"}]})");
    p.put("screen-2.mov", "x");
    EXPECT_FALSE(Project::load(p.url)->isMultiWindow());
    p.put("screen-3.mov", "x");
    EXPECT_TRUE(Project::load(p.url)->isMultiWindow());
    Package single(R"({"sources":[{"fileName":"screen.mov"}]})");
    single.put("screen.mov", "x");
    EXPECT_FALSE(Project::load(single.url)->isMultiWindow());
}

TEST(ProjectPackages, NewPackageIsNamedAfterTheLocalTimeAndCreated) {
    test::TemporaryDirectory root;
    std::tm tm{};
    tm.tm_year = 2025 - 1900;
    tm.tm_mon = 2;
    tm.tm_mday = 4;
    tm.tm_hour = 7;
    tm.tm_min = 8;
    tm.tm_sec = 9;
    tm.tm_isdst = -1;
    Date date = std::chrono::system_clock::from_time_t(std::mktime(&tm));
    fs::path url = Project::makeNewPackageURL(date, root / "Halvane" / "recordings");
    EXPECT_EQ(url.filename(), "Recording 2025-03-04 at 07.08.09.halvane");
    EXPECT_TRUE(fs::is_directory(url));

    std::ofstream(root / "blocker") << "a file where a folder must go";
    EXPECT_THROW(Project::makeNewPackageURL(date, root / "blocker" / "recordings"), HalvaneError);
}

}  // namespace
