#include "App/HalvaneMain.h"

#include <gtest/gtest.h>

using namespace halvane;
using Role = HalvaneMain::Role;

namespace {

TEST(HalvaneMainClassify, WorkerFlagsNeedExactlyThreeArguments) {
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-screenshot-freeze-worker", "/tmp/req"}).role,
              Role::screenshotFreezeWorker);
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-window-screenshot-worker", "/tmp/req"}).role,
              Role::windowScreenshotWorker);
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-screenshot-freeze-worker"}).role, Role::application);
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-text-read-worker", "/tmp/d", "extra"}).role, Role::application);
    EXPECT_EQ(HalvaneMain::classify({"halvane"}).role, Role::application);
    EXPECT_EQ(HalvaneMain::classify({}).role, Role::application);
}

TEST(HalvaneMainClassify, UnknownFlagStartsTheApplication) {
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-other-worker", "x"}), HalvaneMain::Dispatch{});
    // The flag is matched whole: a prefix or a differently cased flag is no worker.
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-text-read-worker=1", "x"}).role, Role::application);
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--HALVANE-TEXT-READ-WORKER", "x"}).role, Role::application);
}

TEST(HalvaneMainClassify, TextWorkerGetsItsDirectoryWhateverItHolds) {
    auto d = HalvaneMain::classify({"halvane", "--halvane-text-read-worker", "/tmp/job dir/ünï"});
    EXPECT_EQ(d.role, Role::textReadWorker);
    EXPECT_EQ(d.argument, "/tmp/job dir/ünï");
    EXPECT_EQ(HalvaneMain::classify({"halvane", "--halvane-text-read-worker", ""}).argument, "");
}

}  // namespace
