// Real takes: a private Xvfb driven by xdotool, a private PulseAudio daemon, the real coordinator.

#include "Capture/RecordingCoordinator.h"
#include "Model/Project.h"
#include "Platform/X11CapturePlatform.h"
#include "Support/Clock.h"
#include "support/MediaProbe.h"
#include "support/PulseAudioFixture.h"
#include "support/TestWindow.h"
#include "support/XvfbFixture.h"

#include "support/Sleep.h"

#include <pulse/error.h>
#include <pulse/simple.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <deque>
#include <mutex>
#include <thread>

using namespace halvane;
using namespace halvane::test;

namespace {

namespace fs = std::filesystem;


// The coordinator on a real X server, with a main-thread queue drained by the test.
class Take {
public:
    Take(const std::string& display, double fps) : platform(display) {
        coordinator.fps = fps;
        coordinator.makePackageURL = [this](Date) { return directory / "take.halvane"; };
        coordinator.onError = [this](const std::string& e) { errors.push_back(e); };
        coordinator.onFinished = [this](std::shared_ptr<Project> p) { finished = std::move(p); };
    }
    ~Take() { fs::remove_all(directory); }

    void drain() {
        for (;;) {
            std::function<void()> task;
            {
                std::lock_guard lock(mutex);
                if (tasks.empty()) return;
                task = std::move(tasks.front());
                tasks.pop_front();
            }
            task();
        }
    }
    void run(double seconds) {
        double end = systemUptime() + seconds;
        while (systemUptime() < end && coordinator.state() != RecordingCoordinator::State::idle) {
            sleepFor(0.01);
            drain();
        }
    }
    // Waits for the first frame; its stamp.
    double waitForFirstFrame() {
        for (int i = 0; i < 500 && !coordinator.sessionStartHostTime(); ++i) run(0.01);
        return coordinator.sessionStartHostTime().value_or(-1);
    }

    fs::path directory = makeScratchDirectory("halvane-take");
    X11CapturePlatform platform;
    std::mutex mutex;
    std::deque<std::function<void()>> tasks;
    RecordingCoordinator coordinator{platform, [this](std::function<void()> t) {
                                         std::lock_guard lock(mutex);
                                         tasks.push_back(std::move(t));
                                     }};
    std::vector<std::string> errors;
    std::shared_ptr<Project> finished;
};

class RecordingIntegrationTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { xvfb = new XvfbFixture(); }
    static void TearDownTestSuite() {
        delete xvfb;
        xvfb = nullptr;
    }
    static XvfbFixture* xvfb;
};
XvfbFixture* RecordingIntegrationTest::xvfb = nullptr;

CaptureTarget areaTarget(Rect rect) {
    return {CaptureTarget::Area{0, rect}, "Area"};
}

size_t firstIndexAbove(const std::vector<double>& values, double threshold) {
    for (size_t i = 0; i < values.size(); ++i)
        if (values[i] > threshold) return i;
    return values.size();
}

}  // namespace

TEST_F(RecordingIntegrationTest, clicksKeysAndFramesOfARealTakeLandWhereAndWhenTheyHappened) {
    TestWindow window(xvfb->displayName(), 100, 100, 800, 600, 0x336699, "Click here");
    xvfb->xdotool("mousemove 500 400");
    const double fps = 20;
    Take take(xvfb->displayName(), fps);
    take.coordinator.begin(areaTarget(Rect(100, 100, 800, 600)), {});
    double start = take.waitForFirstFrame();
    ASSERT_GT(start, 0) << (take.errors.empty() ? "no first frame" : take.errors[0]);
    take.run(0.5);
    double before = systemUptime();
    ASSERT_EQ(xvfb->xdotool("click 1"), 0);
    double after = systemUptime();
    xvfb->xdotool("click 3");
    xvfb->xdotool("type hi");
    xvfb->xdotool("key ctrl+shift+Return");
    take.run(1.2);
    double stoppedAt = systemUptime();
    take.coordinator.stop();
    ASSERT_TRUE(take.errors.empty()) << take.errors[0];
    ASSERT_TRUE(take.finished);

    auto project = Project::load(take.directory / "take.halvane");
    const auto& events = project->events();
    ASSERT_GE(events.clicks.size(), 4u);
    const auto& down = events.clicks[0];
    EXPECT_EQ(down.button, 0);
    EXPECT_EQ(down.phase, ClickPhase::down);
    EXPECT_NEAR(down.x, 0.5, 0.01);
    EXPECT_NEAR(down.y, 0.5, 0.01);
    EXPECT_GE(down.t, before - start - 0.02);
    EXPECT_LE(down.t, after - start + 0.02);
    EXPECT_EQ(events.clicks[1].phase, ClickPhase::up);
    EXPECT_EQ(events.clicks[2].button, 1);

    std::vector<std::string> labels;
    for (const auto& k : events.keys) labels.push_back(k.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"H", "I", "⏎"}));
    ASSERT_EQ(events.keys.size(), 3u);
    EXPECT_EQ(events.keys[2].modifiers, modifierControl | modifierShift);
    ASSERT_FALSE(events.samples.empty());
    EXPECT_NEAR(events.samples.back().x, 0.5, 0.01);

    // The movie lasts from the first frame to the stop, and every frame slot is accounted for.
    double wall = stoppedAt - start;
    const auto& meta = project->meta();
    EXPECT_NEAR(meta.duration, wall, 1.0 / fps + 0.05);
    auto times = videoFrameTimes(project->fileURL("screen.mov"));
    ASSERT_FALSE(times.empty());
    EXPECT_NEAR(times.back(), meta.duration, 1.0 / fps);
    double expectedFrames = meta.duration * fps + 1;
    EXPECT_NEAR(static_cast<double>(times.size()), expectedFrames, 1.5) << "frames lost on a loaded machine?";
}

TEST_F(RecordingIntegrationTest, aTwoSecondPauseLeavesNoGapAndNoFramesFromThePause) {
    TestWindow window(xvfb->displayName(), 0, 0, 320, 240, 0xff0000, "Pause");
    const double fps = 20;
    Take take(xvfb->displayName(), fps);
    take.coordinator.begin(areaTarget(Rect(0, 0, 320, 240)), {});
    ASSERT_GT(take.waitForFirstFrame(), 0);
    take.run(1.0);
    take.coordinator.togglePause();
    window.fill(0x0000ff);  // blue only while paused
    take.run(2.0);
    window.fill(0x00ff00);
    take.coordinator.togglePause();
    take.run(1.0);
    take.coordinator.stop();
    ASSERT_TRUE(take.finished) << (take.errors.empty() ? "" : take.errors[0]);
    EXPECT_NEAR(take.finished->meta().duration, 2.0, 0.25);

    fs::path movie = take.finished->fileURL("screen.mov");
    auto times = videoFrameTimes(movie);
    auto brightness = frameBrightness(movie);
    ASSERT_EQ(times.size(), brightness.size());
    ASSERT_GT(times.size(), 20u);
    for (size_t i = 1; i < times.size(); ++i) EXPECT_LT(times[i] - times[i - 1], 0.25) << "gap before frame " << i;
    // Red is about 76 in luma, green about 150, blue about 29.
    for (size_t i = 0; i < brightness.size(); ++i) EXPECT_GT(brightness[i], 50) << "a frame from the pause at " << times[i];
    EXPECT_GT(brightness.back(), 120);
}

TEST_F(RecordingIntegrationTest, systemSoundIsInStepWithThePicture) {
    PulseAudioFixture pulse;
    TestWindow window(xvfb->displayName(), 0, 0, 320, 240, 0x000000, "Flash");
    const double fps = 60;
    Take take(xvfb->displayName(), fps);
    RecordingOptions options;
    options.systemAudio = true;
    options.recordKeystrokes = false;

    // A low-latency player that keeps the sink fed with silence until the tone.
    pa_sample_spec sampleFormat{PA_SAMPLE_FLOAT32LE, 48000, 2};
    pa_buffer_attr buffer{static_cast<uint32_t>(-1), 48000 * 8 * 40 / 1000, static_cast<uint32_t>(-1), static_cast<uint32_t>(-1),
                          static_cast<uint32_t>(-1)};
    int error = 0;
    pa_simple* player = pa_simple_new(nullptr, "halvane-test", PA_STREAM_PLAYBACK, nullptr, "tone", &sampleFormat, nullptr, &buffer, &error);
    ASSERT_TRUE(player) << pa_strerror(error);
    std::atomic<bool> playTone{false}, done{false};
    std::atomic<double> toneHeardAt{0};
    std::thread feeder([&] {
        std::vector<float> silence(480 * 2, 0.0f), tone(48000 * 2 / 2);
        for (size_t i = 0; i < tone.size(); i += 2) tone[i] = tone[i + 1] = 0.6f * std::sin(2 * M_PI * 1000 * (i / 2) / 48000.0);
        while (!done) {
            if (playTone.exchange(false)) {
                pa_usec_t latency = pa_simple_get_latency(player, nullptr);
                toneHeardAt = systemUptime() + latency / 1e6;
                pa_simple_write(player, tone.data(), tone.size() * sizeof(float), nullptr);
            } else {
                pa_simple_write(player, silence.data(), silence.size() * sizeof(float), nullptr);
            }
        }
    });

    take.coordinator.begin(areaTarget(Rect(0, 0, 320, 240)), options);
    double start = take.waitForFirstFrame();
    ASSERT_GT(start, 0) << (take.errors.empty() ? "" : take.errors[0]);
    take.run(1.0);
    playTone = true;
    while (toneHeardAt.load() == 0) sleepFor(0.001);
    while (systemUptime() < toneHeardAt.load()) sleepFor(0.0005);
    window.fill(0xffffff);
    take.run(1.2);
    take.coordinator.stop();
    done = true;
    feeder.join();
    pa_simple_free(player);
    ASSERT_TRUE(take.finished) << (take.errors.empty() ? "" : take.errors[0]);
    EXPECT_TRUE(take.finished->meta().hasSystemAudio);

    fs::path movie = take.finished->fileURL("screen.mov");
    auto samples = decodeAudioMono(movie, 48000);
    std::vector<double> levels(samples.begin(), samples.end());
    for (auto& l : levels) l = std::fabs(l);
    size_t soundIndex = firstIndexAbove(levels, 0.1);
    ASSERT_LT(soundIndex, levels.size()) << "the tone is not in the movie";
    double soundAt = static_cast<double>(soundIndex) / 48000;
    auto times = videoFrameTimes(movie);
    auto brightness = frameBrightness(movie);
    size_t flashIndex = firstIndexAbove(brightness, 128);
    ASSERT_LT(flashIndex, brightness.size()) << "the flash is not in the movie";
    EXPECT_NEAR(times[flashIndex], soundAt, 0.040);
    EXPECT_NEAR(soundAt, toneHeardAt.load() - start, 0.060);
}

TEST_F(RecordingIntegrationTest, withoutASoundServerATakeWithSoundDoesNotStart) {
    const char* previous = std::getenv("PULSE_SERVER");
    std::string saved = previous ? previous : "";
    setenv("PULSE_SERVER", "unix:/nonexistent/halvane-pulse", 1);
    Take take(xvfb->displayName(), 20);
    RecordingOptions options;
    options.systemAudio = true;
    take.coordinator.begin(areaTarget(Rect(0, 0, 320, 240)), options);
    if (previous) setenv("PULSE_SERVER", saved.c_str(), 1);
    else unsetenv("PULSE_SERVER");
    EXPECT_EQ(take.coordinator.state(), RecordingCoordinator::State::idle);
    ASSERT_EQ(take.errors.size(), 1u);
    EXPECT_NE(take.errors[0].find("sound server"), std::string::npos) << take.errors[0];
    EXPECT_FALSE(fs::exists(take.directory / "take.halvane"));
}

TEST_F(RecordingIntegrationTest, aSoundServerThatDiesEndsTheTakeAndKeepsIt) {
    PulseAudioFixture pulse;
    Take take(xvfb->displayName(), 20);
    RecordingOptions options;
    options.systemAudio = true;
    take.coordinator.begin(areaTarget(Rect(0, 0, 320, 240)), options);
    ASSERT_GT(take.waitForFirstFrame(), 0);
    take.run(0.8);
    pulse.kill();
    take.run(5.0);
    EXPECT_EQ(take.coordinator.state(), RecordingCoordinator::State::idle);
    ASSERT_TRUE(take.finished);
    ASSERT_EQ(take.errors.size(), 1u);
    EXPECT_GT(take.finished->meta().duration, 0.5);
}

TEST(RecordingIntegration, anXServerThatDiesEndsTheTakeAndKeepsIt) {
    XvfbFixture doomed(640, 480);
    Take take(doomed.displayName(), 20);
    take.coordinator.begin({CaptureTarget::Display{0}, "Display"}, {});
    ASSERT_GT(take.waitForFirstFrame(), 0);
    take.run(0.8);
    doomed.kill();
    take.run(5.0);
    EXPECT_EQ(take.coordinator.state(), RecordingCoordinator::State::idle);
    ASSERT_TRUE(take.finished);
    ASSERT_EQ(take.errors.size(), 1u);
    EXPECT_NE(take.errors[0].find(doomed.displayName()), std::string::npos) << take.errors[0];
    EXPECT_GT(take.finished->meta().duration, 0.5);
    EXPECT_GE(videoFrameTimes(take.finished->fileURL("screen.mov")).size(), 8u);
}
