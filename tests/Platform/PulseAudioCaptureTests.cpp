#include "Platform/PulseAudioCapture.h"
#include "Support/Clock.h"
#include "Support/HalvaneError.h"
#include "support/PulseAudioFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>

using namespace halvane;
using namespace halvane::test;

TEST(PulseAudioCapture, recordsTheSineSourceStampedOnTheHostClock) {
    PulseAudioFixture pulse;
    PulseAudioCapture capture(PulseAudioFixture::microphoneName);
    std::mutex mutex;
    size_t frames = 0;
    double peak = 0, firstStamp = -1, lastStamp = 0;
    double before = systemUptime();
    capture.start(
        [&](const float* samples, size_t count, double hostTime) {
            std::lock_guard lock(mutex);
            if (firstStamp < 0) firstStamp = hostTime;
            lastStamp = hostTime;
            for (size_t i = 0; i < count * 2; ++i) peak = std::max(peak, static_cast<double>(std::fabs(samples[i])));
            frames += count;
        },
        [](const std::string&) {});
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    capture.stop();
    double after = systemUptime();
    std::lock_guard lock(mutex);
    EXPECT_GT(frames, 48000u * 3 / 10);
    EXPECT_GT(peak, 0.05);
    EXPECT_GT(firstStamp, before - 0.5);
    EXPECT_LT(lastStamp, after);
    EXPECT_GT(lastStamp, firstStamp);
}

TEST(PulseAudioCapture, aMissingServerOrSourceIsAClearError) {
    {
        PulseAudioFixture pulse;
        PulseAudioCapture capture("no_such_source");
        EXPECT_THROW(capture.start([](const float*, size_t, double) {}, [](const std::string&) {}), HalvaneError);
    }
    setenv("PULSE_SERVER", "unix:/nonexistent/halvane/pulse", 1);
    PulseAudioCapture capture;
    EXPECT_THROW(capture.start([](const float*, size_t, double) {}, [](const std::string&) {}), HalvaneError);
    unsetenv("PULSE_SERVER");
}

TEST(PulseAudioCapture, aDaemonThatDiesIsReported) {
    PulseAudioFixture pulse;
    PulseAudioCapture capture(std::string(PulseAudioFixture::sinkName) + ".monitor");
    std::atomic<bool> failed{false};
    capture.start([](const float*, size_t, double) {}, [&](const std::string&) { failed = true; });
    pulse.kill();
    for (int i = 0; i < 500 && !failed; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(failed);
    capture.stop();
}
