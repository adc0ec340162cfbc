#include "Support/Json.h"
#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace halvane;
namespace fs = std::filesystem;

namespace {

test::ProgramResult state(std::vector<std::string> args) {
    args.insert(args.begin(), {HALVANE_CLI, "state"});
    return test::runProgram(args);
}

// A display take of 30 s: the pointer rests at (0.3, 0.4), one click at 5 s, ⌘C at 5.1 s.
struct StatePackage {
    test::TemporaryDirectory dir;
    fs::path url = dir / "Take.halvane";
    StatePackage() {
        fs::create_directories(url);
        put("meta.json", R"({"mode":"display","pointWidth":1440,"duration":30})");
        put("events.json", R"({"samples":[{"t":0,"x":0.3,"y":0.4},{"t":30,"x":0.3,"y":0.4}],
            "clicks":[{"t":5,"x":0.3,"y":0.4,"button":0,"phase":"down"},{"t":5.2,"x":0.3,"y":0.4,"button":0,"phase":"up"}],
            "keys":[{"t":5.1,"label":"c","modifiers":8}]})");
    }
    void put(const std::string& name, const std::string& text) const { std::ofstream(url / name) << text; }
};

Json runJson(const std::vector<std::string>& args) {
    auto r = state(args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return parseJson(r.out);
}

}  // namespace

TEST(StateCommand, OneObjectPerTimeWithExactKeys) {
    StatePackage p;
    Json all = runJson({p.url.string(), "--at", "1", "--at", "5.3", "--json"});
    ASSERT_TRUE(all.is_array());
    ASSERT_EQ(all.size(), 2u);

    const Json& quiet = all[0];
    EXPECT_EQ(quiet["output"], 1.0);
    EXPECT_EQ(quiet["source"], 1.0);
    EXPECT_EQ(quiet["zoomRect"], Json::parse("[[0,0],[1,1]]"));
    EXPECT_EQ(quiet["cursor"], Json::parse("[0.3,0.4]"));
    EXPECT_EQ(quiet["cursorShape"], "arrow");
    EXPECT_EQ(quiet["ripples"], Json::array());
    EXPECT_FALSE(quiet.contains("keystroke"));
    EXPECT_EQ(quiet["sourceZoomRects"], Json::array());
    EXPECT_EQ(quiet["cursorSource"], 0);
    EXPECT_EQ(quiet.size(), 10u);

    const Json& busy = all[1];
    ASSERT_EQ(busy["ripples"].size(), 1u);
    const Json& ripple = busy["ripples"][0];
    EXPECT_EQ(ripple["isRight"], false);
    EXPECT_NEAR(ripple["progress"].get<double>(), 0.5, 1e-9);
    EXPECT_FALSE(ripple.contains("source"));
    EXPECT_EQ(ripple.size(), 3u);
    EXPECT_EQ(busy["keystroke"]["text"], "⌘C");
    // A generated zoom around the click is in place by now.
    EXPECT_LT(busy["zoomRect"][1][0].get<double>(), 1.0);
    EXPECT_GT(busy["pressAmount"].get<double>(), 0);
}

TEST(StateCommand, OutputTimeGoesThroughTheEditsSpeedMap) {
    StatePackage p;
    p.put("edit.json", R"({"cuts":[{"id":"5D6E6F70-1111-2222-3333-444455556666","start":2,"end":4}],"showCursor":false})");
    Json all = runJson({p.url.string(), "--at", "3", "--json"});
    EXPECT_DOUBLE_EQ(all[0]["source"].get<double>(), 5);
    EXPECT_FALSE(all[0].contains("cursor"));
    EXPECT_TRUE(all[0]["ripples"].empty());

    // --edit replaces the package's settings.
    fs::path other = p.dir / "other.json";
    std::ofstream(other) << R"({"speeds":[{"id":"5D6E6F70-1111-2222-3333-444455556667","start":0,"end":10,"factor":2}]})";
    all = runJson({p.url.string(), "--at", "3", "--edit", other.string(), "--json"});
    EXPECT_DOUBLE_EQ(all[0]["source"].get<double>(), 6);
    EXPECT_TRUE(all[0].contains("cursor"));
}

TEST(StateCommand, UsageAndInputErrors) {
    StatePackage p;
    EXPECT_EQ(state({"--help"}).exitCode, 0);
    EXPECT_EQ(state({p.url.string()}).exitCode, 2);
    EXPECT_EQ(state({p.url.string(), "--at", "soon"}).exitCode, 2);
    EXPECT_EQ(state({p.url.string(), "--at"}).exitCode, 2);
    EXPECT_EQ(state({p.url.string(), "--at", "1", "--bogus"}).exitCode, 2);

    auto missing = state({(p.dir / "none.halvane").string(), "--at", "1"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("none.halvane"), std::string::npos);

    fs::path bad = p.dir / "bad.json";
    std::ofstream(bad) << "[1, 2]";
    auto r = state({p.url.string(), "--at", "1", "--edit", bad.string()});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("bad.json"), std::string::npos);

    // Without --json one line per time.
    auto text = state({p.url.string(), "--at", "1", "--at", "2"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), 2);
}
