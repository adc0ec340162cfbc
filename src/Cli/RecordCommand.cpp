#include "Cli/CliCommand.h"
#include "Cli/Commands.h"

#include "Capture/RecordingCoordinator.h"
#include "Model/Project.h"
#include "Platform/X11CapturePlatform.h"
#include "Support/Clock.h"

#include <csignal>
#include <deque>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <optional>
#include <pthread.h>

namespace halvane::cli {

namespace {

namespace fs = std::filesystem;

const char* recordUsage =
    "Usage: halvane-cli record -o PACKAGE [--display N | --window ID | --area X,Y,W,H] [--duration S]\n"
    "                          [--system-audio] [--mic [SOURCE]] [--fps N]\n"
    "\n"
    "Records a take from the X server in DISPLAY until the duration passes or SIGINT/SIGTERM, then\n"
    "writes a complete package and prints its path. SIGUSR1 pauses and resumes.\n"
    "  -o PACKAGE       the package directory to create (must not exist)\n"
    "  --display N      the monitor to record, as numbered by RandR (default 0)\n"
    "  --window ID      a window (decimal or 0x hex X window id), recorded as a crop of its display\n"
    "  --area X,Y,W,H   a rectangle in root-window pixels\n"
    "  --duration S     seconds of recorded (pause-free) time\n"
    "  --system-audio   record the default output's sound\n"
    "  --mic [SOURCE]   record a PulseAudio source (the default one without SOURCE)\n"
    "  --fps N          frames per second (default 60)\n";

struct RecordOptions {
    fs::path package;
    CaptureTarget target;
    bool targetGiven = false;
    std::optional<Rect> globalArea;
    std::optional<double> duration;
    RecordingOptions recording;
    double fps = 60;
};

std::optional<double> number(const std::string& text) {
    try {
        size_t used = 0;
        double value = std::stod(text, &used);
        if (used != text.size() || !std::isfinite(value)) return std::nullopt;
        return value;
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<uint32_t> identifier(const std::string& text) {
    try {
        size_t used = 0;
        unsigned long value = std::stoul(text, &used, 0);
        if (used != text.size() || value > 0xFFFFFFFFul) return std::nullopt;
        return static_cast<uint32_t>(value);
    } catch (...) {
        return std::nullopt;
    }
}

std::optional<Rect> area(const std::string& text) {
    std::vector<double> parts;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        auto value = number(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (!value) return std::nullopt;
        parts.push_back(*value);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    if (parts.size() != 4 || parts[2] <= 0 || parts[3] <= 0) return std::nullopt;
    return Rect(parts[0], parts[1], parts[2], parts[3]);
}

std::optional<std::string> setTarget(RecordOptions& options, CaptureTarget::Kind kind, const std::string& name) {
    if (options.targetGiven) return "record: give only one of --display, --window and --area";
    options.targetGiven = true;
    options.target.kind = std::move(kind);
    options.target.name = name;
    return std::nullopt;
}

// Gives an error message, or nothing when the arguments are usable.
std::optional<std::string> parseRecordArgs(const Args& args, RecordOptions& options) {
    options.recording.recordKeystrokes = true;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&]() -> std::optional<std::string> {
            if (i + 1 >= args.size()) return std::nullopt;
            return args[++i];
        };
        if (arg == "-o" || arg == "--output") {
            auto v = value();
            if (!v || v->empty()) return "record: -o needs a package path";
            options.package = *v;
        } else if (arg == "--display") {
            auto v = value();
            auto id = v ? identifier(*v) : std::nullopt;
            if (!id) return "record: --display needs a monitor number";
            if (auto e = setTarget(options, CaptureTarget::Display{*id}, "Display " + std::to_string(*id))) return e;
        } else if (arg == "--window") {
            auto v = value();
            auto id = v ? identifier(*v) : std::nullopt;
            if (!id) return "record: --window needs a window id";
            if (auto e = setTarget(options, CaptureTarget::Window{*id}, "Window")) return e;
        } else if (arg == "--area") {
            auto v = value();
            auto rect = v ? area(*v) : std::nullopt;
            if (!rect) return "record: --area needs X,Y,W,H with a positive width and height";
            options.globalArea = rect;
            if (auto e = setTarget(options, CaptureTarget::Area{0, *rect}, "Area")) return e;
        } else if (arg == "--duration") {
            auto v = value();
            auto seconds = v ? number(*v) : std::nullopt;
            if (!seconds || *seconds <= 0) return "record: --duration needs a positive number of seconds";
            options.duration = seconds;
        } else if (arg == "--fps") {
            auto v = value();
            auto fps = v ? number(*v) : std::nullopt;
            if (!fps || *fps < 1 || *fps > 120) return "record: --fps needs a number from 1 to 120";
            options.fps = *fps;
        } else if (arg == "--system-audio") {
            options.recording.systemAudio = true;
        } else if (arg == "--mic") {
            options.recording.microphone = true;
            if (i + 1 < args.size() && !args[i + 1].empty() && args[i + 1][0] != '-') options.recording.micDeviceID = args[++i];
        } else {
            return "record: unknown argument \"" + arg + "\"";
        }
    }
    if (options.package.empty()) return "record: no package given (-o PACKAGE; see halvane-cli record --help)";
    if (!options.targetGiven) options.target = CaptureTarget{CaptureTarget::Display{0}, "Display"};
    return std::nullopt;
}

// Work handed back to the main thread by capture threads.
class MainQueue {
public:
    void post(std::function<void()> task) {
        std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
    }
    void drain() {
        for (;;) {
            std::function<void()> task;
            {
                std::lock_guard lock(mutex_);
                if (tasks_.empty()) return;
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            task();
        }
    }

private:
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
};

// An area given in root pixels becomes an area of the display that holds it; a window is named
// after its title.
bool resolveTarget(RecordOptions& options, CapturePlatform& platform) {
    ShareableContent content = platform.content().current();
    if (const auto* window = std::get_if<CaptureTarget::Window>(&options.target.kind)) {
        if (const auto* info = content.window(window->id); info && !info->title.empty()) options.target.name = info->title;
    }
    if (!options.globalArea) return true;
    const DisplayInfo* display = content.display(*options.globalArea);
    if (!display) return false;
    options.target.kind = CaptureTarget::Area{display->id, options.globalArea->offsetBy(-display->frame.minX(), -display->frame.minY())};
    return true;
}

int record(RecordOptions& options) {
    std::error_code ec;
    if (fs::exists(options.package, ec)) return failure(options.package.string() + ": already exists; choose a new package path");
    fs::path parent = fs::absolute(options.package).parent_path();
    if (!fs::is_directory(parent, ec)) return failure(options.package.string() + ": the folder " + parent.string() + " does not exist");

    // Signals are taken by this thread alone, through sigtimedwait, so every capture thread started
    // below inherits the mask and none is interrupted.
    sigset_t handledSignals;
    sigemptyset(&handledSignals);
    sigaddset(&handledSignals, SIGINT);
    sigaddset(&handledSignals, SIGTERM);
    sigaddset(&handledSignals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &handledSignals, nullptr);

    std::unique_ptr<X11CapturePlatform> platform;
    try {
        platform = std::make_unique<X11CapturePlatform>();
        if (!resolveTarget(options, *platform)) return failure("--area: the rectangle is on no display");
    } catch (const std::exception& e) {
        return failure(e.what());
    }

    MainQueue queue;
    RecordingCoordinator coordinator(*platform, [&queue](std::function<void()> task) { queue.post(std::move(task)); });
    coordinator.fps = options.fps;
    fs::path package = fs::absolute(options.package);
    coordinator.makePackageURL = [package](Date) { return package; };
    std::vector<std::string> errors;
    std::shared_ptr<Project> finished;
    coordinator.onError = [&errors](const std::string& text) { errors.push_back(text); };
    coordinator.onFinished = [&finished](std::shared_ptr<Project> project) { finished = std::move(project); };

    coordinator.begin(options.target, options.recording);
    while (coordinator.state() == RecordingCoordinator::State::recording || coordinator.state() == RecordingCoordinator::State::paused) {
        timespec wait{0, 20'000'000};
        int signal = sigtimedwait(&handledSignals, nullptr, &wait);
        queue.drain();
        if (signal == SIGINT || signal == SIGTERM) {
            coordinator.stop();
            break;
        }
        if (signal == SIGUSR1) coordinator.togglePause();
        auto start = coordinator.sessionStartHostTime();
        // The clock of the take is pause-free: a paused stretch doesn't count.
        if (options.duration && start && coordinator.state() == RecordingCoordinator::State::recording &&
            coordinator.recordedSeconds() >= *options.duration)
            coordinator.stop();
    }
    queue.drain();
    for (const auto& e : errors) std::cerr << "halvane-cli: " << e << "\n";
    if (finished) std::cout << finished->url().string() << "\n";
    if (!errors.empty()) return exitFailure;
    return finished ? exitSuccess : exitFailure;
}

}  // namespace

int runRecord(const Args& args) {
    for (const auto& a : args)
        if (a == "--help" || a == "-h") {
            std::cout << recordUsage;
            return exitSuccess;
        }
    RecordOptions options;
    if (auto error = parseRecordArgs(args, options)) return usageError(*error);
    return record(options);
}

}  // namespace halvane::cli
