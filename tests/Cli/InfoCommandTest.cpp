#include "Model/Project.h"
#include "Support/Json.h"
#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

const fs::path samplePackage = fs::path(HALVANE_SOURCE_DIR) / "tests/fixtures/sample.halvane";

test::ProgramResult info(std::vector<std::string> args) {
    args.insert(args.begin(), {HALVANE_CLI, "info"});
    return test::runProgram(args);
}

// A copy of the sample's records (not its movie) that a test may damage.
struct PackageCopy {
    test::TemporaryDirectory dir;
    fs::path url = dir / "Copy.halvane";
    PackageCopy() {
        fs::create_directories(url);
        fs::copy_file(samplePackage / "meta.json", url / "meta.json");
        fs::copy_file(samplePackage / "events.json", url / "events.json");
    }
    void put(const std::string& name, const std::string& text) const { std::ofstream(url / name) << text; }
};

TEST(InfoCommand, JsonHoldsTheRecordsAsTheProgramWritesThem) {
    auto r = info({samplePackage.string(), "--json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json j = parseJsonObject(r.out);
    EXPECT_TRUE(j.contains("meta"));
    EXPECT_TRUE(j.contains("events"));
    EXPECT_TRUE(j.contains("edit"));
    EXPECT_FALSE(j.contains("transcript"));  // the sample has none

    auto project = Project::load(samplePackage);
    EXPECT_EQ(dumpJson(j["meta"]), Project::encode(project->meta()));
    EXPECT_EQ(dumpJson(j["events"]), Project::encode(project->events()));
    // Generated zooms get fresh identities each time a package without "edit.json" opens.
    auto withoutZoomIds = [](Json edit) {
        for (auto& zoom : edit["zooms"]) zoom.erase("id");
        return dumpJson(edit);
    };
    EXPECT_EQ(withoutZoomIds(j["edit"]), withoutZoomIds(parseJson(Project::encode(project->editState().settings()))));
    EXPECT_FALSE(j["edit"]["zooms"].empty());
    EXPECT_EQ(j["meta"]["createdAt"], "2026-01-15T10:20:30Z");
    EXPECT_EQ(r.out.find('\n'), r.out.size() - 1);  // compact: one line
    EXPECT_FALSE(fs::exists(samplePackage / "edit.json"));  // opening writes nothing
}

TEST(InfoCommand, SummaryAndHelp) {
    auto r = info({samplePackage.string()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("Sample take"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("8 clicks (3 left presses)"), std::string::npos) << r.out;

    auto help = info({"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("Usage: halvane-cli info"), std::string::npos);
}

TEST(InfoCommand, UsageErrorsExitTwo) {
    EXPECT_EQ(info({}).exitCode, 2);
    EXPECT_EQ(info({samplePackage.string(), "--bogus"}).exitCode, 2);
    EXPECT_EQ(info({samplePackage.string(), samplePackage.string()}).exitCode, 2);
}

TEST(InfoCommand, UnusableMetaFailsNamingTheFile) {
    PackageCopy copy;
    copy.put("meta.json", "[\"a list\"]");
    auto r = info({copy.url.string(), "--json"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("meta.json"), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty());

    fs::remove(copy.url / "meta.json");
    r = info({copy.url.string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("meta.json"), std::string::npos) << r.err;

    EXPECT_EQ(info({(copy.dir / "nothing-here.halvane").string()}).exitCode, 1);
}

TEST(InfoCommand, LenientTrapsOpenWithDefaults) {
    PackageCopy copy;
    copy.put("meta.json", R"({"fps":"thirty","mode":"area"})");
    copy.put("edit.json", R"({"clickRipples":false,"background":{"gradient":{"_0":"a"},"solid":{"_0":"#000000"}},"padding":0.2})");
    copy.put("transcript.json", R"({"cues":7})");
    auto r = info({copy.url.string(), "--json"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    Json j = parseJsonObject(r.out);
    EXPECT_EQ(j["meta"]["fps"], 60.0);
    EXPECT_EQ(j["meta"]["mode"], "area");
    EXPECT_EQ(j["edit"]["clickEffect"], "none");
    EXPECT_EQ(j["edit"]["padding"], 0.2);
    EXPECT_EQ(dumpJson(j["edit"]["background"]), R"({"gradient":{"_0":"shots-gradient-1"}})");
    EXPECT_FALSE(j.contains("transcript"));
}

TEST(AppEntry, UnknownFlagStartsTheApplicationWhichQuitsCleanly) {
    auto r = test::runProgram({HALVANE_APP, "--not-a-worker", "x"}, {{"QT_QPA_PLATFORM", "offscreen"}});
    EXPECT_EQ(r.exitCode, 0) << r.err;
}

}  // namespace
