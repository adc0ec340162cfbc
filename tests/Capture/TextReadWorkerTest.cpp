#include "Capture/TextReading/TextReadWorker.h"

#include "Capture/TextReading/PaddleTextReader.h"

#include "TextModelsForTests.h"
#include "support/GuiApplication.h"
#include "support/TemporaryDirectory.h"
#include "support/TextSamples.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <fstream>

using namespace halvane;
using namespace halvane::test;
namespace fs = std::filesystem;

namespace {

// A stand-in worker: a shell script that does what the test needs with the request.
fs::path script(const TemporaryDirectory& folder, const std::string& name, const std::string& body) {
    fs::path path = folder / name;
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    fs::permissions(path, fs::perms::owner_all);
    return path;
}

QImage label(const std::string& text) {
    ensureGuiApplication();
    QImage image(360, 80, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    QFont font("DejaVu Sans");
    font.setPixelSize(24);
    painter.setFont(font);
    painter.setPen(Qt::black);
    painter.drawText(QRect(10, 0, 340, 80), Qt::AlignVCenter | Qt::AlignLeft, QString::fromStdString(text));
    return image;
}

bool isEmptyFolder(const fs::path& path) { return !fs::exists(path) || fs::is_empty(path); }

class TextReadWorkerTest : public ::testing::Test {
protected:
    TemporaryDirectory scratch;
    fs::path jobs() const { return scratch / "jobs"; }
};

}  // namespace

TEST_F(TextReadWorkerTest, ReadsWithTheWarmWorkerAndLeavesANewOneBehind) {
    TextReadWorker worker(HALVANE_CLI, jobs());
    worker.prepare(installedTextModels());
    auto first = worker.preparedProcessId();
    ASSERT_TRUE(first);
    worker.prepare(installedTextModels());
    EXPECT_EQ(worker.preparedProcessId(), first) << "a second prepare launched another process";

    TextReadWorker::Reply reply = worker.readReply(label("Warm worker 17"), installedTextModels());
    EXPECT_EQ(reply.text, "Warm worker 17");
    ASSERT_TRUE(reply.fragments);
    ASSERT_EQ(reply.fragments->size(), 1u);
    EXPECT_GT(reply.fragments->front().rect.width(), 0.3);

    auto next = worker.preparedProcessId();
    ASSERT_TRUE(next);
    EXPECT_NE(next, first);
    worker.cancelPending();
    EXPECT_FALSE(worker.preparedProcessId());
    EXPECT_TRUE(isEmptyFolder(jobs()));
}

TEST_F(TextReadWorkerTest, AChangedModelFolderReplacesThePreparedWorker) {
    TextReadWorker worker(HALVANE_CLI, jobs());
    worker.prepare(scratch / "one");
    auto first = worker.preparedProcessId();
    worker.prepare(scratch / "two");
    EXPECT_NE(worker.preparedProcessId(), first);
    worker.cancelPending();
    EXPECT_TRUE(isEmptyFolder(jobs()));
}

TEST_F(TextReadWorkerTest, AWorkerThatDiesBeforeItsReplyStopsTheRead) {
    TextReadWorker worker(script(scratch, "dies", "read line; kill -9 $$"), jobs());
    try {
        worker.read(label("Never read"), scratch.path());
        FAIL() << "a dead worker gave text";
    } catch (const TextReadWorker::WorkerError& e) {
        EXPECT_EQ(e.kind(), TextReadWorker::WorkerError::Kind::failed);
        EXPECT_STREQ(e.what(), "The text reader stopped");
    }
    worker.cancelPending();
    EXPECT_TRUE(isEmptyFolder(jobs()));
}

TEST_F(TextReadWorkerTest, ASlowWorkerTimesOutAndAnEmptyReplyIsNoText) {
    TextReadWorker slow(script(scratch, "slow", "read line; sleep 30"), jobs());
    slow.timeout = std::chrono::milliseconds(300);
    try {
        slow.read(label("Too slow"), scratch.path());
        FAIL() << "no time-out";
    } catch (const TextReadWorker::WorkerError& e) {
        EXPECT_EQ(e.kind(), TextReadWorker::WorkerError::Kind::timedOut);
        EXPECT_STREQ(e.what(), "The text reader took too long");
    }
    slow.cancelPending();

    TextReadWorker quiet(script(scratch, "quiet", "read line; echo; echo '{}'"), jobs());
    EXPECT_EQ(quiet.read(label("Nothing"), scratch.path()), "");
    quiet.cancelPending();
    EXPECT_TRUE(isEmptyFolder(jobs()));
}

TEST_F(TextReadWorkerTest, ADamagedModelFolderIsAClearErrorAndLeavesNoJobFolder) {
    fs::create_directories(scratch / "damaged");
    std::ofstream(scratch / "damaged" / PaddleTextReader::detectorFile) << "not a model";
    TextReadWorker worker(HALVANE_CLI, jobs());
    try {
        worker.read(label("Damaged"), scratch / "damaged");
        FAIL() << "read with damaged models";
    } catch (const TextReadWorker::WorkerError& e) {
        EXPECT_STREQ(e.what(), "The PP-OCRv6 model is damaged");
    }
    worker.cancelPending();
    EXPECT_TRUE(isEmptyFolder(jobs()));
}

TEST_F(TextReadWorkerTest, StartingAJobRemovesFoldersLeftByOldCrashes) {
    fs::create_directories(jobs() / "OLD");
    fs::create_directories(jobs() / "RECENT");
    fs::last_write_time(jobs() / "OLD", fs::file_time_type::clock::now() - std::chrono::hours(25));
    TextReadWorker worker(script(scratch, "idle", "read line"), jobs());
    worker.prepare(scratch.path());
    EXPECT_FALSE(fs::exists(jobs() / "OLD"));
    EXPECT_TRUE(fs::exists(jobs() / "RECENT"));
    worker.cancelPending();
}

TEST_F(TextReadWorkerTest, ThePreparedWorkerGoesAfterItsIdleLifetime) {
    TextReadWorker worker(script(scratch, "idle", "read line"), jobs());
    worker.idleLifetime = std::chrono::milliseconds(200);
    worker.prepare(scratch.path());
    ASSERT_TRUE(worker.preparedProcessId());
    for (int i = 0; i < 200 && worker.preparedProcessId(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(worker.preparedProcessId());
    EXPECT_TRUE(isEmptyFolder(jobs()));
}
