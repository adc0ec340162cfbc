#include "Support/Json.h"
#include "support/GuiApplication.h"
#include "support/LoopbackHttpServer.h"
#include "support/RunProgram.h"
#include "support/TemporaryDirectory.h"
#include "support/TextSamples.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

using namespace halvane;
using namespace halvane::test;
namespace fs = std::filesystem;

namespace {

const std::string release = "pp-ocrv4-mobile-v2";

std::string committedArchive() {
    std::ifstream in(fs::path(HALVANE_SOURCE_DIR) / "resources/text-models" / (release + ".tar.zst"), std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

// Each test has its own settings and data folders, so the models it installs are its own.
class ReadTextCommandTest : public ::testing::Test {
protected:
    void SetUp() override { ensureGuiApplication(); }

    ProgramResult cli(std::vector<std::string> args, std::map<std::string, std::string> extra = {}) {
        args.insert(args.begin(), HALVANE_CLI);
        extra["XDG_DATA_HOME"] = (home / "data").string();
        extra["XDG_CONFIG_HOME"] = (home / "config").string();
        extra["TMPDIR"] = (home / "tmp").string();
        fs::create_directories(home / "tmp");
        return runProgram(args, extra);
    }

    // Nothing in the temporary folder but the empty folder of text read jobs.
    bool leftNothingBehind() const {
        for (const auto& entry : fs::directory_iterator(home / "tmp"))
            if (entry.path().filename() != "Halvane Text Reads" || !fs::is_empty(entry.path())) return false;
        return true;
    }

    fs::path writeSample(const TextSample& sample) {
        fs::path path = home / (sample.name + ".png");
        sample.image.save(QString::fromStdString(path.string()));
        return path;
    }

    TemporaryDirectory home;
};

}  // namespace

TEST_F(ReadTextCommandTest, TheSystemEngineReadsAScreenshotAsJson) {
    TextSample sample = renderParagraph(560, 120, TextTheme::light, 16, 11);
    ProgramResult result = cli({"read-text", writeSample(sample).string(), "--engine", "system", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    Json out = parseJsonObject(result.out);
    EXPECT_EQ(out["engine"], "tesseract");
    EXPECT_LT(characterErrorRate(out["text"].get<std::string>(), sample.expected), 0.05) << result.out;
    ASSERT_FALSE(out["fragments"].empty());
    for (const auto& fragment : out["fragments"]) {
        Rect rect;
        fromJson(fragment["rect"], rect);
        EXPECT_GE(rect.minX(), 0);
        EXPECT_LE(rect.maxY(), 1);
    }
}

TEST_F(ReadTextCommandTest, BadInputAndBadUsageGetClearErrors) {
    ProgramResult missing = cli({"read-text", (home / "absent.png").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("absent.png"), std::string::npos) << missing.err;

    std::ofstream(home / "empty.png").close();
    ProgramResult empty = cli({"read-text", (home / "empty.png").string()});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_NE(empty.err.find("empty.png"), std::string::npos) << empty.err;

    EXPECT_EQ(cli({"read-text"}).exitCode, 2);
    EXPECT_EQ(cli({"read-text", "x.png", "--engine", "magic"}).exitCode, 2);
    EXPECT_EQ(cli({"text-models", "polish"}).exitCode, 2);
    ProgramResult help = cli({"text-models", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_NE(help.out.find("HALVANE_TEXT_MODEL_URL"), std::string::npos);
    EXPECT_TRUE(leftNothingBehind()) << "a job folder was left behind";
}

TEST_F(ReadTextCommandTest, InstalledModelsReadThroughTheWorkerAndRemoveCleanly) {
    LoopbackHttpServer server;
    std::map<std::string, std::string> url{{"HALVANE_TEXT_MODEL_URL", server.baseUrl()}};

    ProgramResult failed = cli({"text-models", "install"}, url);
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_NE(failed.err.find("404"), std::string::npos) << failed.err;

    server.serve("/models/" + release + ".tar.zst", {200, committedArchive(), std::nullopt});
    ProgramResult installed = cli({"text-models", "install"}, url);
    ASSERT_EQ(installed.exitCode, 0) << installed.err;
    Json status = parseJsonObject(cli({"text-models", "status", "--json"}, url).out);
    EXPECT_EQ(status["installed"], true);
    EXPECT_EQ(status["selected"], true);
    EXPECT_EQ(status["release"]["name"], release);

    TextSample sample = renderForm(560, 240, TextTheme::light, 16, 1);
    ProgramResult read = cli({"read-text", writeSample(sample).string(), "--json"});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    Json out = parseJsonObject(read.out);
    EXPECT_EQ(out["engine"], "pp-ocr");
    EXPECT_LT(characterErrorRate(out["text"].get<std::string>(), sample.expected), 0.03) << read.out;

    EXPECT_EQ(cli({"text-models", "remove"}).exitCode, 0);
    Json after = parseJsonObject(cli({"text-models", "status", "--json"}).out);
    EXPECT_EQ(after["installed"], false);
    EXPECT_EQ(after["selected"], false);
    EXPECT_TRUE(leftNothingBehind()) << "a job folder or download was left behind";
}
