#include "Capture/RecordingCoordinator.h"
#include "Model/Project.h"
#include "Support/Localization.h"
#include "support/FakeCapturePlatform.h"
#include "support/MediaProbe.h"

#include "support/Sleep.h"

#include <gtest/gtest.h>

#include <deque>
#include <thread>

using namespace halvane;
using namespace halvane::test;

namespace {

namespace fs = std::filesystem;


class CoordinatorRig {
public:
    CoordinatorRig() {
        ShareableContent content;
        content.displays = {{0, "main", Rect(0, 0, 640, 480), 1.0}, {1, "side", Rect(640, 0, 320, 240), 1.0}};
        content.windows = {{11, "Editor", "app", 1, Rect(40, 40, 200, 150)}, {12, "Browser", "app", 2, Rect(300, 100, 300, 200)}};
        platform.contentProvider.setContent(content);
        coordinator.fps = 20;
        coordinator.makePackageURL = [this](Date) {
            fs::path url = directory / ("take-" + std::to_string(++takes) + ".halvane");
            fs::create_directories(url);
            return url;
        };
        coordinator.onError = [this](const std::string& e) { errors.push_back(e); };
        coordinator.onFinished = [this](std::shared_ptr<Project> p) { finished = std::move(p); };
        coordinator.onStateChange = [this](RecordingCoordinator::State s) { states.push_back(s); };
    }
    ~CoordinatorRig() { fs::remove_all(directory); }

    void drain() {
        while (!tasks.empty()) {
            auto task = std::move(tasks.front());
            tasks.pop_front();
            task();
        }
    }
    void recordFor(double seconds) {
        for (double t = 0; t < seconds; t += 0.05) {
            sleepFor(0.05);
            drain();
        }
    }
    std::vector<fs::path> entries() const {
        std::vector<fs::path> list;
        for (const auto& e : fs::directory_iterator(directory)) list.push_back(e.path().filename());
        return list;
    }

    fs::path directory = makeScratchDirectory("halvane-coordinator");
    FakeCapturePlatform platform;
    std::deque<std::function<void()>> tasks;
    RecordingCoordinator coordinator{platform, [this](std::function<void()> t) { tasks.push_back(std::move(t)); }};
    std::vector<std::string> errors;
    std::shared_ptr<Project> finished;
    std::vector<RecordingCoordinator::State> states;
    int takes = 0;
};

CaptureTarget area(Rect rect) {
    return {CaptureTarget::Area{0, rect}, "Area"};
}

}  // namespace

TEST(RecordingCoordinator, anAreaTakeWritesACompletePackageOnlyAtStop) {
    CoordinatorRig rig;
    RecordingOptions options;
    options.systemAudio = true;
    rig.platform.contentProvider.setPointer(Point{140, 90});
    rig.coordinator.begin(area(Rect(100, 50, 201, 151)), options);
    ASSERT_EQ(rig.coordinator.state(), RecordingCoordinator::State::recording);
    rig.recordFor(0.6);
    // While the take runs nothing carries its final name.
    EXPECT_FALSE(fs::exists(rig.directory / "take-1.halvane" / "meta.json"));
    rig.platform.inputSources[0]->send({InputEvent::Kind::buttonDown, 0, {}, 0, *rig.coordinator.sessionStartHostTime() + 0.3});
    rig.coordinator.stop();
    ASSERT_TRUE(rig.errors.empty()) << rig.errors.front();
    ASSERT_TRUE(rig.finished);
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::idle);
    EXPECT_EQ(rig.entries(), std::vector<fs::path>{"take-1.halvane"});

    auto project = Project::load(rig.directory / "take-1.halvane");
    const auto& meta = project->meta();
    EXPECT_EQ(meta.mode, "area");
    EXPECT_EQ(meta.pixelWidth, 200);  // made even
    EXPECT_EQ(meta.pixelHeight, 150);
    EXPECT_EQ(meta.scale, 1.0);
    EXPECT_TRUE(meta.hasSystemAudio);
    EXPECT_NEAR(meta.duration, 0.6, 0.2);
    ASSERT_EQ(project->events().clicks.size(), 1u);
    EXPECT_NEAR(project->events().clicks[0].x, 0.2, 1e-9);
    EXPECT_NEAR(project->events().clicks[0].y, 0.2667, 1e-3);
    EXPECT_NEAR(project->events().clicks[0].t, 0.3, 1e-6);
    EXPECT_TRUE(fs::exists(project->fileURL("edit.json")));
    EXPECT_EQ(rig.platform.grabberSizes[0], QSize(200, 150));
}

TEST(RecordingCoordinator, badTargetsFailWithTheirOwnWordsAndLeaveNothing) {
    CoordinatorRig rig;
    rig.coordinator.begin({CaptureTarget::Display{7}, "Gone"}, {});
    rig.coordinator.begin(area(Rect(0, 0, 63, 400)), {});
    rig.coordinator.begin({CaptureTarget::Window{99}, "Gone"}, {});
    ASSERT_EQ(rig.errors.size(), 3u);
    EXPECT_EQ(rig.errors[0], Localization::string("error.displayUnavailable"));
    EXPECT_EQ(rig.errors[1], Localization::string("error.captureAreaTooSmall"));
    EXPECT_EQ(rig.errors[2], Localization::string("error.windowOffscreen"));
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::idle);
    EXPECT_TRUE(rig.entries().empty());

    rig.platform.failAudio = true;
    RecordingOptions withSound;
    withSound.systemAudio = true;
    rig.coordinator.begin({CaptureTarget::Display{0}, "Main"}, withSound);
    EXPECT_EQ(rig.errors.size(), 4u);
    EXPECT_TRUE(rig.entries().empty());
}

TEST(RecordingCoordinator, countdownDiscardRestartAndTooShortTakes) {
    CoordinatorRig rig;
    std::function<void()> finishCountdown, cancelCountdown;
    rig.coordinator.onCountdown = [&](int, std::function<void()> finish, std::function<void()> cancel) {
        finishCountdown = finish;
        cancelCountdown = cancel;
    };
    RecordingOptions options;
    options.countdownSeconds = 3;
    rig.coordinator.begin({CaptureTarget::Display{0}, "Main"}, options);
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::countingDown);
    rig.coordinator.stop();  // nothing during the countdown
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::countingDown);
    cancelCountdown();
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::idle);

    rig.coordinator.begin({CaptureTarget::Display{0}, "Main"}, options);
    finishCountdown();
    rig.recordFor(0.3);
    rig.coordinator.restart();  // throws the take away and counts down again
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::countingDown);
    finishCountdown();
    rig.recordFor(0.3);
    rig.coordinator.discard();
    EXPECT_TRUE(rig.entries().empty());
    EXPECT_FALSE(rig.finished);

    rig.coordinator.onCountdown = nullptr;
    rig.coordinator.begin({CaptureTarget::Display{0}, "Main"}, {});
    rig.coordinator.stop();  // before any useful length
    EXPECT_FALSE(rig.finished);
    ASSERT_EQ(rig.errors.size(), 1u);
    EXPECT_TRUE(rig.entries().empty());
}

TEST(RecordingCoordinator, aLostSourceEndsTheTakeAndKeepsWhatWasCaptured) {
    CoordinatorRig rig;
    rig.coordinator.begin({CaptureTarget::Display{0}, "Main"}, {});
    rig.platform.grabbers[0]->failAfter = 10;
    rig.recordFor(1.2);
    EXPECT_EQ(rig.coordinator.state(), RecordingCoordinator::State::idle);
    ASSERT_TRUE(rig.finished);
    ASSERT_EQ(rig.errors.size(), 1u);
    EXPECT_NE(rig.errors[0].find("display disconnected"), std::string::npos);
    EXPECT_GT(rig.finished->meta().duration, 0.3);
}

TEST(RecordingCoordinator, aMultiWindowTakeKeepsItsSourcesAndAssignsClicks) {
    CoordinatorRig rig;
    CaptureTarget target{CaptureTarget::Windows{{{11, "Editor"}, {55, "Closed"}, {12, "Browser"}}}, "Two windows"};
    rig.coordinator.begin(target, {});
    ASSERT_EQ(rig.coordinator.state(), RecordingCoordinator::State::recording) << (rig.errors.empty() ? "" : rig.errors[0]);
    rig.recordFor(0.5);
    // A click in the middle of the browser window, in pointer-space units.
    rig.platform.contentProvider.setPointer(Point{450, 200});
    rig.platform.inputSources[0]->send({InputEvent::Kind::buttonDown, 0, {}, 0, *rig.coordinator.sessionStartHostTime() + 0.4});
    rig.recordFor(0.2);
    rig.coordinator.stop();
    ASSERT_TRUE(rig.finished);
    const auto& meta = rig.finished->meta();
    EXPECT_EQ(meta.version, 2);
    EXPECT_EQ(meta.mode, "windows");
    ASSERT_EQ(meta.sources.size(), 2u);
    EXPECT_EQ(meta.sources[0].fileName, "screen.mov");
    EXPECT_EQ(meta.sources[1].fileName, "screen-2.mov");
    EXPECT_EQ(meta.sources[1].pixelWidth, 300);
    EXPECT_TRUE(fs::exists(rig.finished->fileURL("screen-2.mov")));
    const auto& events = rig.finished->events();
    EXPECT_EQ(events.pointerSpace, Rect(0, 0, 960, 480));
    ASSERT_EQ(events.windowFrames.size(), 2u);
    ASSERT_EQ(events.clicks.size(), 1u);
    EXPECT_EQ(events.clicks[0].source, 1);
    EXPECT_NEAR(events.clicks[0].x, 0.5, 1e-9);
    EXPECT_NEAR(events.clicks[0].y, 0.5, 1e-9);
    ASSERT_FALSE(events.focus.empty());
    EXPECT_EQ(events.focus[0].source, 0);  // the editor is in front

    // A pick of which one window is left is an ordinary window take.
    rig.finished.reset();
    rig.coordinator.begin({CaptureTarget::Windows{{{55, "Closed"}, {12, "Browser"}}}, "One left"}, {});
    rig.recordFor(0.3);
    rig.coordinator.stop();
    ASSERT_TRUE(rig.finished);
    EXPECT_EQ(rig.finished->meta().version, 1);
    EXPECT_EQ(rig.finished->meta().mode, "window");
    EXPECT_TRUE(rig.finished->meta().sources.empty());
}

TEST(RecordingCoordinator, clickSourcesLookAheadForTheWindowTheClickBroughtForward) {
    std::map<uint32_t, std::vector<FocusRecorder::FrameSample>> frames{
        {1, {{0, Rect(0, 0, 100, 100)}}},
        {2, {{0, Rect(50, 50, 100, 100)}}},
    };
    std::vector<ClickEvent> clicks{{1.0, 0.3, 0.3, 0, ClickPhase::down, {}},   // (60, 60): both windows
                                   {2.0, 0.3, 0.3, 0, ClickPhase::down, {}},
                                   {3.0, 0.95, 0.95, 0, ClickPhase::down, {}}};  // on neither
    std::vector<FocusSample> focus{{0, 0}, {2.1, 1}};
    RecordingCoordinator::assignClickSources(clicks, Rect(0, 0, 200, 200), {1, 2}, focus, frames);
    EXPECT_EQ(clicks[0].source, 0);
    EXPECT_NEAR(clicks[0].x, 0.6, 1e-9);
    EXPECT_EQ(clicks[1].source, 1);  // the focus moved 0.1 s later: this click did it
    EXPECT_NEAR(clicks[1].x, 0.1, 1e-9);
    EXPECT_FALSE(clicks[2].source);
    EXPECT_EQ(clicks[2].x, 0.95);
}
