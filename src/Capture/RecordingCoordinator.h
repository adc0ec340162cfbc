#pragma once

#include "Capture/CaptureController.h"
#include "Capture/CaptureTarget.h"
#include "Capture/FocusRecorder.h"
#include "Capture/KeyRecorder.h"
#include "Capture/MouseRecorder.h"
#include "Capture/PauseClock.h"
#include "Capture/RecordingOptions.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Platform/CapturePlatform.h"
#include "Support/Date.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>

namespace halvane {

class Project;

// Owns one take at a time, from begin to the finished package: finds the sources, sizes them,
// starts the recorders before the screen, pauses everything through one PauseClock, stops in a
// fixed order and writes the package, whose directory appears under its final name only once it
// is complete.
//
// All commands and callbacks belong to the owner's thread; work that arrives on capture threads is
// handed back through `post`.
class RecordingCoordinator {
public:
    enum class State { idle, countingDown, recording, paused, finishing };
    using Post = std::function<void(std::function<void()>)>;

    RecordingCoordinator(CapturePlatform& platform, Post post);
    ~RecordingCoordinator();

    void begin(const CaptureTarget& target, const RecordingOptions& options);
    void stop();
    void togglePause();
    void restart();
    void discard();

    State state() const { return state_; }
    const RecordingMeta& meta() const { return meta_; }
    std::optional<double> sessionStartHostTime() const { return sessionStartHostTime_; }
    // Seconds on the take's pause-free timeline so far; 0 before the first frame.
    double recordedSeconds() const;
    const std::optional<std::filesystem::path>& projectURL() const { return projectURL_; }
    // The primary capture's counters, while a take runs.
    std::optional<CaptureController::Statistics> captureStatistics() const;

    std::function<void(State)> onStateChange;
    std::function<void(std::shared_ptr<Project>)> onFinished;
    std::function<void(const std::string&)> onError;
    // Shows a countdown of `seconds`; calls `finish` at its end or `cancel`. Without it a take
    // starts at once.
    std::function<void(int seconds, std::function<void()> finish, std::function<void()> cancel)> onCountdown;
    // Where a new package goes; by default "~/Halvane/recordings/Recording <date>.halvane".
    std::function<std::filesystem::path(Date)> makePackageURL;
    // Frame rate of every screen movie.
    double fps = 60.0;

    // Moves the clicks of a multi-source take from the whole pointer space onto the source under
    // each press, looking a little ahead for a click that itself brought its window forward.
    static void assignClickSources(std::vector<ClickEvent>& clicks, const Rect& space, const std::vector<uint32_t>& windowIDs,
                                   const std::vector<FocusSample>& focus,
                                   const std::map<uint32_t, std::vector<FocusRecorder::FrameSample>>& frames);

private:
    struct PreparedSource {
        uint32_t id = 0;
        std::string name;
        int pixelWidth = 0;
        int pixelHeight = 0;
        double pointWidth = 0;
        double pointHeight = 0;
        std::optional<DisplayInfo> display;
        std::optional<WindowInfo> window;
    };

    void setState(State state);
    void startCapture();
    void startCaptureNow();
    void startSingleSource(const CaptureTarget& target);
    void startMultiSource(std::vector<PreparedSource> prepared, const std::string& mode);
    void prepareMulti(const CaptureTarget& target);
    void startAncillaryRecorders(std::optional<Rect> pointerRect);
    void abortAncillaryRecorders();
    std::unique_ptr<CaptureController> makeCapture(std::unique_ptr<ScreenGrabber> grabber, const std::filesystem::path& file,
                                                   bool withAudio, int width, int height);
    void createPackage();
    void cleanupFailedStart();
    void handleRuntimeError(const std::string& description);
    void finishRecording(std::optional<std::string> runtimeError, bool discarding);
    std::shared_ptr<Project> writePackage(const RecordedEvents& events);
    void finalReset();

    CapturePlatform& platform_;
    Post post_;
    State state_ = State::idle;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);

    std::unique_ptr<CaptureController> capture_;
    std::vector<std::unique_ptr<CaptureController>> extraCaptures_;
    std::map<const CaptureController*, double> extraStartHostTimes_;
    std::vector<uint32_t> multiSourceIDs_;
    std::unique_ptr<FocusRecorder> focusRecorder_;
    std::optional<Rect> multiMouseSpace_;
    std::unique_ptr<InputEventSource> mouseInput_;
    std::unique_ptr<InputEventSource> keyInput_;
    std::unique_ptr<MouseRecorder> mouse_;
    std::unique_ptr<KeyRecorder> keys_;
    std::optional<std::filesystem::path> projectURL_;   // final name of the running take
    std::optional<std::filesystem::path> stagingURL_;   // where it is written until complete
    RecordingMeta meta_;
    std::optional<double> sessionStartHostTime_;
    std::shared_ptr<PauseClock> pauseClock_ = std::make_shared<PauseClock>();
    std::optional<CaptureTarget> currentTarget_;
    std::optional<RecordingOptions> currentOptions_;
    bool isRestarting_ = false;
    std::shared_ptr<std::mutex> statsMutex_ = std::make_shared<std::mutex>();
};

}  // namespace halvane
