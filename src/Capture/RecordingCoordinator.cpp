#include "Capture/RecordingCoordinator.h"

#include "Model/Project.h"
#include "Support/AtomicFile.h"
#include "Support/HalvaneError.h"
#include "Support/Localization.h"

#include <algorithm>
#include <cmath>

namespace halvane {

namespace fs = std::filesystem;

namespace {

constexpr int minimumPixels = 64;
constexpr double minimumDuration = 0.05;

HalvaneError displayUnavailable() { return HalvaneError(Localization::string("error.displayUnavailable"), 1); }
HalvaneError windowOffscreen() { return HalvaneError(Localization::string("error.windowOffscreen"), 2); }
HalvaneError areaTooSmall() { return HalvaneError(Localization::string("error.captureAreaTooSmall"), 3); }

// Pixels are whole and even (4:2:0 video), at least 64 each way.
int evenPixels(double points, double scale) {
    return static_cast<int>(points * scale) & ~1;
}

RecordingMeta initialMeta(const std::string& sourceName, double fps) {
    RecordingMeta meta;
    meta.sourceName = sourceName;
    meta.createdAt = std::chrono::system_clock::now();
    meta.fps = fps;
    return meta;
}

std::string sourceFileName(size_t index) {
    return index == 0 ? std::string(PackageFile::screen) : "screen-" + std::to_string(index + 1) + ".mov";
}

void removeQuietly(const fs::path& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

}  // namespace

RecordingCoordinator::RecordingCoordinator(CapturePlatform& platform, Post post) : platform_(platform), post_(std::move(post)) {
    makePackageURL = [](Date date) { return Project::makeNewPackageURL(date); };
}

RecordingCoordinator::~RecordingCoordinator() {
    *alive_ = false;
    if (state_ == State::recording || state_ == State::paused) finishRecording(std::nullopt, true);
}

void RecordingCoordinator::setState(State state) {
    state_ = state;
    if (onStateChange) onStateChange(state);
}

std::optional<CaptureController::Statistics> RecordingCoordinator::captureStatistics() const {
    if (!capture_) return std::nullopt;
    return capture_->statistics();
}

double RecordingCoordinator::recordedSeconds() const {
    if (!sessionStartHostTime_) return 0;
    auto now = pauseClock_->adjusted(pauseClock_->now());
    double paused = pauseClock_->totalPaused();
    return std::max(0.0, now ? *now - *sessionStartHostTime_ : pauseClock_->now() - paused - *sessionStartHostTime_);
}

void RecordingCoordinator::begin(const CaptureTarget& target, const RecordingOptions& options) {
    if (state_ != State::idle) return;
    currentTarget_ = target;
    currentOptions_ = options;
    setState(State::countingDown);
    if (options.countdownSeconds < 1 || !onCountdown) {
        startCapture();
        return;
    }
    auto alive = alive_;
    onCountdown(
        options.countdownSeconds,
        [this, alive] {
            if (*alive && state_ == State::countingDown) startCapture();
        },
        [this, alive] {
            if (*alive && state_ == State::countingDown) setState(State::idle);
        });
}

void RecordingCoordinator::startCapture() {
    try {
        startCaptureNow();
    } catch (const std::exception& e) {
        cleanupFailedStart();
        setState(State::idle);
        if (onError) onError(e.what());
        return;
    }
    setState(State::recording);
}

void RecordingCoordinator::startCaptureNow() {
    const CaptureTarget& target = *currentTarget_;
    if (std::holds_alternative<CaptureTarget::Device>(target.kind))
        throw HalvaneError(Localization::format("error.recordingFailed", "device capture is not available on this system"), 6);
    if (std::holds_alternative<CaptureTarget::Windows>(target.kind) || std::holds_alternative<CaptureTarget::Displays>(target.kind)) {
        prepareMulti(target);
        return;
    }
    startSingleSource(target);
}

void RecordingCoordinator::startSingleSource(const CaptureTarget& target) {
    ShareableContent content = platform_.content().current();
    meta_ = initialMeta(target.name, fps);

    const DisplayInfo* display = nullptr;
    Rect pointerRect;
    std::optional<Rect> crop;
    if (const auto* d = std::get_if<CaptureTarget::Display>(&target.kind)) {
        display = content.display(d->id);
        if (!display) throw displayUnavailable();
        pointerRect = display->frame;
        meta_.mode = "display";
    } else if (const auto* a = std::get_if<CaptureTarget::Area>(&target.kind)) {
        display = content.display(a->display);
        if (!display) throw displayUnavailable();
        Rect area = a->rect.standardized().intersection(Rect(Point{}, display->frame.size));
        pointerRect = area.offsetBy(display->frame.minX(), display->frame.minY());
        crop = area;
        meta_.mode = "area";
    } else if (const auto* w = std::get_if<CaptureTarget::Window>(&target.kind)) {
        const WindowInfo* window = content.window(w->id);
        if (!window) throw windowOffscreen();
        display = content.display(window->frame);
        if (!display) throw displayUnavailable();
        Rect clipped = window->frame.intersection(display->frame);
        if (!(clipped.width() > 1) || !(clipped.height() > 1)) throw windowOffscreen();
        // A window is recorded as a crop of its display: what passes in front of it is filmed too.
        pointerRect = clipped;
        crop = clipped.offsetBy(-display->frame.minX(), -display->frame.minY());
        meta_.mode = "window";
    }

    double scale = display->scale;
    Size points = crop ? crop->size : display->frame.size;
    int pixelWidth = evenPixels(points.width, scale);
    int pixelHeight = evenPixels(points.height, scale);
    if (pixelWidth < minimumPixels || pixelHeight < minimumPixels) throw areaTooSmall();
    if (crop) {
        // Crop and output agree exactly: the crop takes the even pixel size.
        points = {pixelWidth / scale, pixelHeight / scale};
        crop->size = points;
        pointerRect.size = points;
    }
    meta_.pixelWidth = pixelWidth;
    meta_.pixelHeight = pixelHeight;
    meta_.pointWidth = points.width;
    meta_.pointHeight = points.height;
    meta_.scale = scale;
    meta_.hasSystemAudio = currentOptions_->systemAudio;
    meta_.hasMicrophone = currentOptions_->microphone;

    createPackage();
    pauseClock_ = std::make_shared<PauseClock>();
    auto grabber = platform_.makeDisplayGrabber(*display, crop.value_or(Rect(Point{}, display->frame.size)));
    capture_ = makeCapture(std::move(grabber), *stagingURL_ / PackageFile::screen, true, pixelWidth, pixelHeight);
    startAncillaryRecorders(pointerRect);
    try {
        capture_->start();
    } catch (...) {
        abortAncillaryRecorders();
        throw;
    }
}

std::unique_ptr<CaptureController> RecordingCoordinator::makeCapture(std::unique_ptr<ScreenGrabber> grabber, const fs::path& file,
                                                                     bool withAudio, int width, int height) {
    CaptureController::Config config;
    config.pixelWidth = width;
    config.pixelHeight = height;
    config.fps = fps;
    config.systemAudio = withAudio && currentOptions_->systemAudio;
    config.microphone = withAudio && currentOptions_->microphone;
    config.micDeviceID = currentOptions_->micDeviceID;
    CaptureController::Sources sources;
    sources.screen = std::move(grabber);
    if (config.systemAudio) sources.systemAudio = platform_.makeSystemAudio();
    if (config.microphone) sources.microphone = platform_.makeMicrophone(config.micDeviceID);
    auto capture = std::make_unique<CaptureController>(config, file, pauseClock_, std::move(sources));
    auto alive = alive_;
    if (withAudio) {
        capture->onSessionStart = [this, alive](double seconds) {
            post_([this, alive, seconds] {
                if (*alive) sessionStartHostTime_ = seconds;
            });
        };
        capture->onRuntimeError = [this, alive](const std::string& description) {
            post_([this, alive, description] {
                if (*alive) handleRuntimeError(description);
            });
        };
    }
    return capture;
}

void RecordingCoordinator::createPackage() {
    fs::path url = makePackageURL(meta_.createdAt);
    // The take is written under a hidden name beside its final one and renamed when complete.
    fs::path staging = url.parent_path() / ("." + url.filename().string() + ".recording");
    removeQuietly(staging);
    std::error_code ec;
    fs::create_directories(staging, ec);
    if (ec) {
        removeQuietly(url);
        throw HalvaneError("Could not create \"" + staging.string() + "\": " + ec.message(), ec.value());
    }
    projectURL_ = url;
    stagingURL_ = staging;
}

void RecordingCoordinator::startAncillaryRecorders(std::optional<Rect> pointerRect) {
    if (pointerRect) {
        mouseInput_ = platform_.makeInputEvents();
        Rect rect = *pointerRect;
        MouseRecorder::Platform mousePlatform{&platform_.content(), mouseInput_.get(), platform_.cursor(), {}};
        mouse_ = std::make_unique<MouseRecorder>([rect] { return rect; }, pauseClock_, std::move(mousePlatform));
        mouse_->start();
    }
    if (currentOptions_->recordKeystrokes) {
        keyInput_ = platform_.makeInputEvents();
        keys_ = std::make_unique<KeyRecorder>(pauseClock_, *keyInput_);
        if (!keys_->start()) {
            keys_.reset();
            keyInput_.reset();
        }
    }
}

void RecordingCoordinator::abortAncillaryRecorders() {
    if (mouse_) mouse_->stop(0);
    if (keys_) keys_->stop(0);
    mouse_.reset();
    keys_.reset();
    mouseInput_.reset();
    keyInput_.reset();
}

void RecordingCoordinator::prepareMulti(const CaptureTarget& target) {
    ShareableContent content = platform_.content().current();
    std::vector<PreparedSource> prepared;
    bool windows = std::holds_alternative<CaptureTarget::Windows>(target.kind);
    auto add = [&](PreparedSource source, Size points, double scale) {
        source.pixelWidth = evenPixels(points.width, scale);
        source.pixelHeight = evenPixels(points.height, scale);
        source.pointWidth = source.pixelWidth / scale;
        source.pointHeight = source.pixelHeight / scale;
        if (source.pixelWidth >= minimumPixels && source.pixelHeight >= minimumPixels) prepared.push_back(std::move(source));
    };
    if (windows) {
        for (const auto& pick : std::get<CaptureTarget::Windows>(target.kind).picks) {
            const WindowInfo* window = content.window(pick.id);
            if (!window) continue;
            PreparedSource source;
            source.id = pick.id;
            source.name = pick.name;
            source.window = *window;
            add(std::move(source), window->frame.size, 1.0);
        }
    } else {
        for (const auto& pick : std::get<CaptureTarget::Displays>(target.kind).picks) {
            const DisplayInfo* display = content.display(pick.id);
            if (!display) continue;
            PreparedSource source;
            source.id = pick.id;
            source.name = pick.name;
            source.display = *display;
            add(std::move(source), display->frame.size, display->scale);
        }
    }
    if (prepared.empty()) throw windows ? windowOffscreen() : displayUnavailable();
    if (prepared.size() == 1) {
        CaptureTarget single;
        single.name = prepared.front().name;
        if (windows) single.kind = CaptureTarget::Window{prepared.front().id};
        else single.kind = CaptureTarget::Display{prepared.front().id};
        startSingleSource(single);
        return;
    }
    startMultiSource(std::move(prepared), windows ? "windows" : "displays");
}

void RecordingCoordinator::startMultiSource(std::vector<PreparedSource> prepared, const std::string& mode) {
    const PreparedSource& first = prepared.front();
    meta_ = initialMeta(currentTarget_->name, fps);
    meta_.version = 2;
    meta_.mode = mode;
    meta_.pixelWidth = first.pixelWidth;
    meta_.pixelHeight = first.pixelHeight;
    meta_.pointWidth = first.pointWidth;
    meta_.pointHeight = first.pointHeight;
    meta_.scale = first.display ? first.display->scale : 1.0;
    meta_.hasSystemAudio = currentOptions_->systemAudio;
    meta_.hasMicrophone = currentOptions_->microphone;
    for (size_t i = 0; i < prepared.size(); ++i) {
        const auto& p = prepared[i];
        meta_.sources.push_back({sourceFileName(i), p.name, p.pixelWidth, p.pixelHeight, p.pointWidth, p.pointHeight, 0});
    }
    createPackage();
    pauseClock_ = std::make_shared<PauseClock>();

    std::vector<std::unique_ptr<CaptureController>> captures;
    for (size_t i = 0; i < prepared.size(); ++i) {
        const auto& p = prepared[i];
        auto grabber = p.window ? platform_.makeWindowGrabber(*p.window, QSize(p.pixelWidth, p.pixelHeight))
                                : platform_.makeDisplayGrabber(*p.display, Rect(0, 0, p.pointWidth, p.pointHeight));
        captures.push_back(makeCapture(std::move(grabber), *stagingURL_ / meta_.sources[i].fileName, i == 0, p.pixelWidth, p.pixelHeight));
    }
    capture_ = std::move(captures.front());
    for (size_t i = 1; i < captures.size(); ++i) {
        auto* controller = captures[i].get();
        auto alive = alive_;
        controller->onSessionStart = [this, alive, controller](double seconds) {
            post_([this, alive, controller, seconds] {
                if (*alive) extraStartHostTimes_[controller] = seconds;
            });
        };
        extraCaptures_.push_back(std::move(captures[i]));
    }
    for (const auto& p : prepared) multiSourceIDs_.push_back(p.id);
    ShareableContent content = platform_.content().current();
    Rect space = content.displayUnion();
    multiMouseSpace_ = space;
    startAncillaryRecorders(space);
    focusRecorder_ = std::make_unique<FocusRecorder>(mode == "windows" ? FocusRecorder::Kind::windows : FocusRecorder::Kind::displays,
                                                     multiSourceIDs_, pauseClock_, platform_.content());
    focusRecorder_->start();
    try {
        capture_->start();
    } catch (...) {
        abortAncillaryRecorders();
        focusRecorder_->stop(0);
        focusRecorder_.reset();
        for (auto& extra : extraCaptures_) extra->abort();
        extraCaptures_.clear();
        capture_.reset();
        throw;
    }
    // A secondary source that can't start is left out; the take goes on with the others.
    for (size_t i = 0; i < extraCaptures_.size();) {
        try {
            extraCaptures_[i]->start();
            ++i;
        } catch (...) {
            extraCaptures_[i]->abort();
            size_t sourceIndex = meta_.sources.size() - extraCaptures_.size() + i;
            removeQuietly(*stagingURL_ / meta_.sources[sourceIndex].fileName);
            meta_.sources.erase(meta_.sources.begin() + static_cast<long>(sourceIndex));
            multiSourceIDs_.erase(multiSourceIDs_.begin() + static_cast<long>(sourceIndex));
            extraCaptures_.erase(extraCaptures_.begin() + static_cast<long>(i));
        }
    }
}

void RecordingCoordinator::cleanupFailedStart() {
    if (capture_) capture_->abort();
    capture_.reset();
    for (auto& extra : extraCaptures_) extra->abort();
    extraCaptures_.clear();
    extraStartHostTimes_.clear();
    multiSourceIDs_.clear();
    multiMouseSpace_.reset();
    if (focusRecorder_) focusRecorder_->stop(0);
    focusRecorder_.reset();
    abortAncillaryRecorders();
    if (stagingURL_) removeQuietly(*stagingURL_);
    if (projectURL_) removeQuietly(*projectURL_);
    stagingURL_.reset();
    projectURL_.reset();
}

void RecordingCoordinator::togglePause() {
    if (state_ == State::paused) {
        pauseClock_->resume();
        setState(State::recording);
    } else if (state_ == State::recording) {
        pauseClock_->pause();
        setState(State::paused);
    }
}

void RecordingCoordinator::stop() {
    if (state_ != State::recording && state_ != State::paused) return;
    setState(State::finishing);
    finishRecording(std::nullopt, false);
}

void RecordingCoordinator::discard() {
    if (state_ != State::recording && state_ != State::paused) return;
    setState(State::finishing);
    finishRecording(std::nullopt, true);
}

void RecordingCoordinator::restart() {
    if ((state_ != State::recording && state_ != State::paused) || !currentTarget_ || !currentOptions_) return;
    isRestarting_ = true;
    setState(State::finishing);
    finishRecording(std::nullopt, true);
    isRestarting_ = false;
    begin(*currentTarget_, *currentOptions_);
}

void RecordingCoordinator::handleRuntimeError(const std::string& description) {
    if (state_ != State::recording && state_ != State::paused) return;
    setState(State::finishing);
    finishRecording(description, false);
}

void RecordingCoordinator::finishRecording(std::optional<std::string> runtimeError, bool discarding) {
    auto capture = std::move(capture_);
    auto extras = std::move(extraCaptures_);
    auto mouse = std::move(mouse_);
    auto keys = std::move(keys_);
    auto focus = std::move(focusRecorder_);
    extraCaptures_.clear();

    double duration = 0;
    std::vector<bool> extraKept(extras.size(), false);
    if (discarding) {
        if (capture) capture->abort();
        for (auto& extra : extras) extra->abort();
    } else {
        if (capture) {
            try {
                duration = capture->stop();
            } catch (const std::exception& e) {
                duration = 0;
                runtimeError = e.what();
            }
        }
        for (size_t i = 0; i < extras.size(); ++i) {
            try {
                extras[i]->stop();
                extraKept[i] = true;
            } catch (...) {
            }
        }
    }
    // The session start arrives through `post`; a stop right after the first frame may still
    // have it queued, so the capture's own record is read as well.
    if (!sessionStartHostTime_ && capture) sessionStartHostTime_ = capture->sessionStart();
    for (const auto& extra : extras)
        if (auto stamp = extra->sessionStart(); stamp && !extraStartHostTimes_.count(extra.get()))
            extraStartHostTimes_[extra.get()] = *stamp;
    double s = sessionStartHostTime_.value_or(0);
    RecordedEvents events = mouse ? mouse->stop(s) : RecordedEvents{};
    if (keys) events.keys = keys->stop(s);
    FocusRecorder::Report focusReport = focus ? focus->stop(s) : FocusRecorder::Report{};
    mouse.reset();
    keys.reset();
    mouseInput_.reset();
    keyInput_.reset();

    if (discarding) {
        if (stagingURL_) removeQuietly(*stagingURL_);
        if (projectURL_) removeQuietly(*projectURL_);
        finalReset();
        return;
    }
    if (!stagingURL_ || !(duration > minimumDuration)) {
        if (stagingURL_) removeQuietly(*stagingURL_);
        if (projectURL_) removeQuietly(*projectURL_);
        if (onError) onError(runtimeError ? *runtimeError : Localization::string("error.recordingTooShort"));
        finalReset();
        return;
    }
    meta_.duration = duration;

    if (!extras.empty() && meta_.sources.size() == extras.size() + 1 && multiSourceIDs_.size() == extras.size() + 1) {
        std::vector<RecordingSource> sources{meta_.sources.front()};
        std::vector<uint32_t> ids{multiSourceIDs_.front()};
        for (size_t i = 0; i < extras.size(); ++i) {
            auto stamp = extraStartHostTimes_.find(extras[i].get());
            if (extraKept[i] && stamp != extraStartHostTimes_.end()) {
                RecordingSource source = meta_.sources[i + 1];
                source.startOffset = stamp->second - s;
                sources.push_back(source);
                ids.push_back(multiSourceIDs_[i + 1]);
            } else {
                removeQuietly(*stagingURL_ / meta_.sources[i + 1].fileName);
            }
        }
        meta_.sources = std::move(sources);
        multiSourceIDs_ = std::move(ids);
    }
    for (const auto& sample : focusReport.samples) {
        auto it = std::find(multiSourceIDs_.begin(), multiSourceIDs_.end(), sample.id);
        if (it != multiSourceIDs_.end()) events.focus.push_back({sample.t, static_cast<int>(it - multiSourceIDs_.begin())});
    }
    if (multiMouseSpace_) {
        assignClickSources(events.clicks, *multiMouseSpace_, multiSourceIDs_, events.focus, focusReport.frames);
        events.pointerSpace = multiMouseSpace_;
        for (uint32_t id : multiSourceIDs_) {
            std::vector<WindowFrameSample> list;
            if (auto it = focusReport.frames.find(id); it != focusReport.frames.end())
                for (const auto& f : it->second) list.push_back({f.t, f.frame});
            events.windowFrames.push_back(std::move(list));
        }
    }

    std::shared_ptr<Project> project;
    try {
        project = writePackage(events);
    } catch (const std::exception& e) {
        if (onError) onError(Localization::format("error.saveFailed", e.what()));
        finalReset();
        return;
    }
    if (runtimeError && onError) onError(Localization::format("error.stoppedEarly", *runtimeError));
    finalReset();
    if (onFinished) onFinished(project);
}

std::shared_ptr<Project> RecordingCoordinator::writePackage(const RecordedEvents& events) {
    EditSettings settings = Project::defaultSettings(meta_, events);
    if (meta_.mode == "device") {
        settings.autoZoom = false;
        settings.showCursor = false;
    }
    const fs::path& staging = *stagingURL_;
    writeFileAtomically(staging / PackageFile::meta, Project::encode(meta_));
    writeFileAtomically(staging / PackageFile::events, Project::encode(events));
    writeFileAtomically(staging / PackageFile::edit, Project::encode(settings));
    // The package appears under its name complete, in one step.
    std::error_code ec;
    fs::remove(*projectURL_, ec);  // the empty directory made when the name was chosen
    fs::rename(staging, *projectURL_, ec);
    if (ec) throw HalvaneError("Could not move the recording to \"" + projectURL_->string() + "\": " + ec.message(), ec.value());
    stagingURL_.reset();
    return std::make_shared<Project>(*projectURL_, meta_, events, settings);
}

void RecordingCoordinator::finalReset() {
    sessionStartHostTime_.reset();
    extraStartHostTimes_.clear();
    multiSourceIDs_.clear();
    multiMouseSpace_.reset();
    projectURL_.reset();
    stagingURL_.reset();
    if (!isRestarting_) {
        currentTarget_.reset();
        currentOptions_.reset();
    }
    setState(State::idle);
}

void RecordingCoordinator::assignClickSources(std::vector<ClickEvent>& clicks, const Rect& space, const std::vector<uint32_t>& windowIDs,
                                              const std::vector<FocusSample>& focus,
                                              const std::map<uint32_t, std::vector<FocusRecorder::FrameSample>>& frames) {
    if (!(space.width() > 1) || !(space.height() > 1)) return;
    for (auto& click : clicks) {
        Point global{space.minX() + click.x * space.width(), space.minY() + click.y * space.height()};
        int focused = 0;
        for (const auto& f : focus)
            if (f.t <= click.t + 0.15) focused = f.source;
        std::vector<int> candidates{focused};
        for (int i = 0; i < static_cast<int>(windowIDs.size()); ++i)
            if (i != focused) candidates.push_back(i);
        for (int index : candidates) {
            if (index < 0 || index >= static_cast<int>(windowIDs.size())) continue;
            auto it = frames.find(windowIDs[static_cast<size_t>(index)]);
            if (it == frames.end() || it->second.empty()) continue;
            const FocusRecorder::FrameSample* sample = &it->second.front();
            for (const auto& f : it->second)
                if (f.t <= click.t) sample = &f;
            const Rect& frame = sample->frame;
            if (!(frame.width() > 1) || !(frame.height() > 1) || !frame.contains(global)) continue;
            click.source = index;
            click.x = (global.x - frame.minX()) / frame.width();
            click.y = (global.y - frame.minY()) / frame.height();
            break;
        }
    }
}

}  // namespace halvane
