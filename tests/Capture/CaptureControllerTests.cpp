#include "Capture/CaptureController.h"
#include "Support/Clock.h"
#include "support/FakePlatform.h"
#include "support/MediaProbe.h"

#include "support/Sleep.h"

#include <gtest/gtest.h>

#include <thread>

using namespace halvane;
using namespace halvane::test;

namespace {


struct ControllerRig {
    std::filesystem::path directory = makeScratchDirectory("halvane-capture");
    std::filesystem::path movie = directory / "screen.mov";
    std::shared_ptr<PauseClock> pauseClock = std::make_shared<PauseClock>();
    FakeScreenGrabber* grabber = nullptr;
    FakeAudioCaptureSource* audio = nullptr;
    std::unique_ptr<CaptureController> controller;

    explicit ControllerRig(bool withAudio, double fps = 20) {
        CaptureController::Sources sources;
        auto g = std::make_unique<FakeScreenGrabber>(QSize(128, 96));
        grabber = g.get();
        sources.screen = std::move(g);
        if (withAudio) {
            auto a = std::make_unique<FakeAudioCaptureSource>();
            audio = a.get();
            sources.systemAudio = std::move(a);
        }
        controller = std::make_unique<CaptureController>(CaptureController::Config{128, 96, fps, withAudio, false, {}}, movie, pauseClock,
                                                         std::move(sources));
    }
    ~ControllerRig() { std::filesystem::remove_all(directory); }
};

}  // namespace

TEST(CaptureController, writesAMovieWhoseLengthIsTheRecordedTime) {
    ControllerRig rig(false);
    std::optional<double> sessionStart;
    rig.controller->onSessionStart = [&](double t) { sessionStart = t; };
    double before = systemUptime();
    rig.controller->start();
    sleepFor(1.0);
    double duration = rig.controller->stop();
    double wall = systemUptime() - before;
    ASSERT_TRUE(sessionStart);
    EXPECT_GE(*sessionStart, before);
    EXPECT_NEAR(duration, wall, 0.1);
    auto times = videoFrameTimes(rig.movie);
    ASSERT_FALSE(times.empty());
    EXPECT_NEAR(times.back(), duration, 0.051);
    auto stats = rig.controller->statistics();
    EXPECT_EQ(static_cast<int64_t>(times.size()), stats.framesWritten);
}

TEST(CaptureController, aPauseWritesNoFramesAndLeavesNoGap) {
    ControllerRig rig(false);
    rig.controller->start();
    sleepFor(0.5);
    rig.pauseClock->pause();
    int grabsAtPause = rig.grabber->grabs;
    sleepFor(0.8);
    EXPECT_LE(rig.grabber->grabs - grabsAtPause, 1);  // at most one grab already under way
    rig.pauseClock->resume();
    sleepFor(0.5);
    double duration = rig.controller->stop();
    EXPECT_NEAR(duration, 1.0, 0.15);
    auto times = videoFrameTimes(rig.movie);
    ASSERT_GE(times.size(), 10u);
    for (size_t i = 1; i < times.size(); ++i) EXPECT_LT(times[i] - times[i - 1], 0.2) << "gap before frame " << i;
}

TEST(CaptureController, aStopDuringAPauseEndsWhereThePauseBegan) {
    ControllerRig rig(false);
    rig.controller->start();
    sleepFor(0.6);
    rig.pauseClock->pause();
    sleepFor(0.6);
    double duration = rig.controller->stop();
    EXPECT_NEAR(duration, 0.6, 0.12);
}

TEST(CaptureController, soundFromBeforeTheFirstFrameIsDropped) {
    ControllerRig rig(true);
    std::optional<double> sessionStart;
    rig.controller->onSessionStart = [&](double t) { sessionStart = t; };
    rig.controller->start();
    sleepFor(0.3);
    ASSERT_TRUE(sessionStart);
    // One block from before the first frame, then a loud second from its start on.
    rig.audio->push(std::vector<float>(4800 * 2, 0.9f), *sessionStart - 0.5);
    std::vector<float> tone(48000 * 2);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = (i / 2) % 48 < 24 ? 0.5f : -0.5f;
    rig.audio->push(tone, *sessionStart);
    sleepFor(0.9);
    rig.controller->stop();
    auto probe = probeMedia(rig.movie);
    ASSERT_TRUE(probeStream(probe, "audio"));
    auto samples = decodeAudioMono(rig.movie, 48000);
    ASSERT_GT(samples.size(), 24000u);
    // The sound starts with the tone at time 0, not with the earlier block.
    float early = 0;
    for (size_t i = 0; i < 2400; ++i) early = std::max(early, std::fabs(samples[i]));
    EXPECT_GT(early, 0.2f);
}

TEST(CaptureController, noFrameMeansNoMovieAndALostSourceIsReportedOnce) {
    {
        ControllerRig rig(false);
        rig.grabber->failAfter = 0;
        int errors = 0;
        rig.controller->onRuntimeError = [&](const std::string&) { ++errors; };
        rig.controller->start();
        sleepFor(0.3);
        EXPECT_THROW(rig.controller->stop(), CaptureController::NoFramesCaptured);
        EXPECT_EQ(errors, 1);
        EXPECT_FALSE(std::filesystem::exists(rig.movie));
    }
    ControllerRig rig(false);
    rig.grabber->failAfter = 8;
    int errors = 0;
    rig.controller->onRuntimeError = [&](const std::string&) { ++errors; };
    rig.controller->start();
    sleepFor(0.8);
    double duration = rig.controller->stop();
    EXPECT_EQ(errors, 1);
    EXPECT_GT(duration, 0.2);
    EXPECT_GE(videoFrameTimes(rig.movie).size(), 8u);
}
