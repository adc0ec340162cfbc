#include "Capture/TextReading/TextModelStore.h"

#include "Capture/TextReading/PaddleTextReader.h"
#include "TextModelsForTests.h"
#include "support/GuiApplication.h"
#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

using namespace halvane;
using namespace halvane::test;
namespace fs = std::filesystem;

namespace {

class MemoryDefaults : public TextModelStore::Defaults {
public:
    std::optional<std::string> string(const std::string& key) const override {
        auto it = values.find(key);
        return it == values.end() ? std::nullopt : std::optional(it->second);
    }
    void setString(const std::string& key, const std::string& value) override { values[key] = value; }
    void remove(const std::string& key) override { values.erase(key); }
    std::map<std::string, std::string> values;
};

std::string archiveBytes() {
    static const std::string bytes = [] {
        std::ifstream in(committedTextModelArchive(), std::ios::binary);
        std::stringstream buffer;
        buffer << in.rdbuf();
        return buffer.str();
    }();
    return bytes;
}

class TextModelStoreTest : public ::testing::Test {
protected:
    void SetUp() override { ensureGuiApplication(); }

    TextModelStore makeStore() {
        return TextModelStore(defaults, scratch / "root", TextModelStore::archiveUrlFrom(server.baseUrl().c_str()));
    }
    std::string archivePath() const { return "/models/" + TextModelStore::release.name + ".tar.zst"; }

    // Runs the event loop until the store's task is over, for at most two minutes.
    void waitUntilDone(TextModelStore& store) {
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            if (!store.isRunning()) loop.quit();
        });
        poll.start(20);
        QTimer::singleShot(120000, &loop, &QEventLoop::quit);
        loop.exec();
        ASSERT_FALSE(store.isRunning()) << "the install did not end";
    }

    std::vector<std::string> rootEntries() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(scratch / "root", error))
            names.push_back(entry.path().filename().string());
        return names;
    }

    MemoryDefaults defaults;
    TemporaryDirectory scratch;
    LoopbackHttpServer server;
};

}  // namespace

TEST_F(TextModelStoreTest, InstallsTheArchiveWithRisingProgressAndNothingHalfDone) {
    server.serve(archivePath(), {200, archiveBytes(), std::nullopt});
    TextModelStore store = makeStore();
    std::vector<TextModelStore::Phase> phases;
    store.onChange = [&] {
        if (phases.empty() || !(phases.back() == store.phase())) phases.push_back(store.phase());
    };
    store.select();
    ASSERT_EQ(store.phase().kind, TextModelStore::Phase::Kind::downloading);
    waitUntilDone(store);

    EXPECT_EQ(store.phase(), TextModelStore::Phase{});
    EXPECT_TRUE(store.isSelected());
    ASSERT_TRUE(store.isInstalled());
    EXPECT_EQ(rootEntries(), std::vector<std::string>{TextModelStore::release.name});
    EXPECT_TRUE(fs::exists(*store.installedDirectory() / "LICENSE.txt"));
    EXPECT_NO_THROW(PaddleTextReader::load(*store.installedDirectory()));

    ASSERT_GE(phases.size(), 3u);
    EXPECT_EQ(phases.front().kind, TextModelStore::Phase::Kind::downloading);
    EXPECT_EQ(phases[phases.size() - 2].kind, TextModelStore::Phase::Kind::installing);
    double last = -1;
    for (const auto& phase : phases) {
        if (phase.kind != TextModelStore::Phase::Kind::downloading) continue;
        EXPECT_GT(phase.fraction, last);
        last = phase.fraction;
    }

    // Selecting again with the models in place starts nothing.
    int requests = server.requestCount();
    store.select();
    EXPECT_FALSE(store.isRunning());
    EXPECT_EQ(store.phase(), TextModelStore::Phase{});
    EXPECT_EQ(server.requestCount(), requests);
}

TEST_F(TextModelStoreTest, TruncatedOrChangedArchivesEndAsCorruptAndClearTheSelection) {
    std::string changed = archiveBytes();
    changed[changed.size() / 2] ^= 0x01;
    for (const auto& body : {archiveBytes().substr(0, 1000000), changed}) {
        server.serve(archivePath(), {200, body, std::nullopt});
        TextModelStore store = makeStore();
        store.select();
        waitUntilDone(store);
        EXPECT_EQ(store.phase().kind, TextModelStore::Phase::Kind::failed);
        EXPECT_EQ(store.phase().message, "The downloaded text models are damaged.");
        EXPECT_FALSE(store.isSelected());
        EXPECT_FALSE(store.isInstalled());
        EXPECT_TRUE(rootEntries().empty());
    }
}

TEST_F(TextModelStoreTest, AMissingArchiveReportsTheServersStatus) {
    TextModelStore store = makeStore();
    store.select();
    waitUntilDone(store);
    EXPECT_EQ(store.phase().kind, TextModelStore::Phase::Kind::failed);
    EXPECT_NE(store.phase().message.find("404"), std::string::npos) << store.phase().message;
    EXPECT_FALSE(store.isSelected());
    // Selecting after a failure starts over from idle.
    server.serve(archivePath(), {200, archiveBytes(), std::nullopt});
    store.select();
    EXPECT_EQ(store.phase().kind, TextModelStore::Phase::Kind::downloading);
    waitUntilDone(store);
    EXPECT_TRUE(store.isInstalled());
}

TEST_F(TextModelStoreTest, DeselectingDuringTheDownloadLeavesNothingAndIgnoresTheLateEnd) {
    server.serve(archivePath(), {200, archiveBytes(), std::nullopt});
    TextModelStore store = makeStore();
    store.select();
    store.deselect();
    EXPECT_EQ(store.phase(), TextModelStore::Phase{});
    EXPECT_FALSE(store.isRunning());
    QEventLoop loop;
    QTimer::singleShot(1500, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(store.phase(), TextModelStore::Phase{});
    EXPECT_FALSE(fs::exists(scratch / "root" / TextModelStore::release.name));
    EXPECT_FALSE(store.isSelected());
}

TEST(TextModelStoreUrl, OnlyHttpUrlsWithAHostReplaceTheDefaultBase) {
    std::string file = TextModelStore::release.name + ".tar.zst";
    std::string fallback = std::string(TextModelStore::defaultBaseUrl) + "models/" + file;
    EXPECT_EQ(TextModelStore::archiveUrlFrom(nullptr).toString().toStdString(), fallback);
    EXPECT_EQ(TextModelStore::archiveUrlFrom("file:///srv/models").toString().toStdString(), fallback);
    EXPECT_EQ(TextModelStore::archiveUrlFrom("no host here").toString().toStdString(), fallback);
    EXPECT_EQ(TextModelStore::archiveUrlFrom("HTTP://example.org/base").toString().toStdString(),
              "http://example.org/base/models/" + file);
}

TEST(TextModelStoreInstall, RemovesStaleInstallsAndStagingLeftovers) {
    TemporaryDirectory root;
    for (const char* name : {"pp-ocrv3-old", ".staging-ABC", "pp-ocrv4-mobile-v2"}) fs::create_directories(root / name);
    TextModelStore::removeStaleInstalls(root.path(), "pp-ocrv4-mobile-v2");
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(root.path())) left.push_back(entry.path().filename().string());
    EXPECT_EQ(left, std::vector<std::string>{"pp-ocrv4-mobile-v2"});
}

TEST(TextModelStoreInstall, TheCommittedArchiveMatchesTheReleaseRecord) {
    EXPECT_NO_THROW(TextModelStore::verify(committedTextModelArchive(), TextModelStore::release));
    std::ifstream record(fs::path(HALVANE_SOURCE_DIR) / "resources/text-models" / (TextModelStore::release.name + ".json"));
    std::stringstream text;
    text << record.rdbuf();
    EXPECT_NE(text.str().find(TextModelStore::release.sha256), std::string::npos);
    EXPECT_NE(text.str().find(std::to_string(TextModelStore::release.size)), std::string::npos);
}
