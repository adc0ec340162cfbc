// Live capture figures on this machine, under a private Xvfb at 1920 x 1080 whose screen a child
// process repaints 120 times a second:
//   - dropped frames at 30 and 60 fps (frameSlots the clock offered that never reached the encoder),
//   - CPU seconds per recorded second, ours against `ffmpeg -f x11grab` with the same encoder
//     settings (libx264 ultrafast, same bit rate and key frame interval, fragmented MOV),
//   - time from stop to a complete package.
// Run: build/<dir>/bench/CaptureRecordBench --benchmark_counters_tabular=true

#include "Capture/CaptureController.h"
#include "Capture/RecordingCoordinator.h"
#include "Media/MovieWriter.h"
#include "Platform/X11CapturePlatform.h"
#include "Support/Clock.h"

#include <benchmark/benchmark.h>
#include <xcb/xcb.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <thread>

using namespace halvane;

namespace {

namespace fs = std::filesystem;

constexpr double recordSeconds = 6.0;

double cpuSeconds(const rusage& r) {
    return r.ru_utime.tv_sec + r.ru_stime.tv_sec + (r.ru_utime.tv_usec + r.ru_stime.tv_usec) / 1e6;
}

double ownCpu() {
    rusage r{};
    getrusage(RUSAGE_SELF, &r);
    return cpuSeconds(r);
}

pid_t spawn(const std::vector<std::string>& argv) {
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> args;
        for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        freopen("/dev/null", "w", stdout);
        freopen("/dev/null", "w", stderr);
        execvp(args[0], args.data());
        _exit(127);
    }
    return pid;
}

// The server and a child that paints a full-screen window a new colour every 1/120 s.
class Screen {
public:
    Screen() {
        for (int n = 180; n < 260; ++n) {
            if (fs::exists("/tmp/.X" + std::to_string(n) + "-lock")) continue;
            display = ":" + std::to_string(n);
            server = spawn({"Xvfb", display, "-screen", "0", "1920x1080x24", "-nolisten", "tcp", "-noreset"});
            for (int i = 0; i < 200; ++i) {
                xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
                bool up = !xcb_connection_has_error(c);
                xcb_disconnect(c);
                if (up) break;
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            break;
        }
        painter = fork();
        if (painter == 0) {
            paint();
            _exit(0);
        }
    }
    ~Screen() {
        kill(painter, SIGKILL);
        waitpid(painter, nullptr, 0);
        kill(server, SIGTERM);
        waitpid(server, nullptr, 0);
    }

    std::string display;

private:
    void paint() {
        xcb_connection_t* c = xcb_connect(display.c_str(), nullptr);
        xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
        xcb_window_t w = xcb_generate_id(c);
        uint32_t black = 0;
        xcb_create_window(c, XCB_COPY_FROM_PARENT, w, screen->root, 0, 0, 1920, 1080, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                          screen->root_visual, XCB_CW_BACK_PIXEL, &black);
        xcb_map_window(c, w);
        for (uint32_t n = 0;; ++n) {
            uint32_t colour = (n * 0x10305u) & 0xffffffu;
            xcb_change_window_attributes(c, w, XCB_CW_BACK_PIXEL, &colour);
            xcb_clear_area(c, 0, w, 0, 0, 0, 0);
            free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
            std::this_thread::sleep_for(std::chrono::microseconds(8333));
        }
    }

    pid_t server = -1;
    pid_t painter = -1;
};

Screen& screen() {
    static Screen s;
    return s;
}

void BM_CaptureDisplay(benchmark::State& state) {
    const double fps = static_cast<double>(state.range(0));
    fs::path dir = fs::temp_directory_path() / ("halvane-bench-" + std::to_string(getpid()));
    fs::create_directories(dir);
    X11CapturePlatform platform(screen().display);
    auto content = platform.content().current();
    for (auto _ : state) {
        auto pauseClock = std::make_shared<PauseClock>();
        CaptureController::Sources sources;
        sources.screen = platform.makeDisplayGrabber(content.displays.at(0), Rect(0, 0, 1920, 1080));
        CaptureController controller({1920, 1080, fps, false, false, {}}, dir / "screen.mov", pauseClock, std::move(sources));
        double cpuBefore = ownCpu();
        controller.start();
        std::this_thread::sleep_for(std::chrono::duration<double>(recordSeconds));
        double duration = controller.stop();
        double cpu = ownCpu() - cpuBefore;
        auto stats = controller.statistics();
        double frameSlots = duration * fps + 1;
        state.counters["dropped_pct"] = 100.0 * std::max(0.0, frameSlots - static_cast<double>(stats.framesWritten)) / frameSlots;
        state.counters["cpu_per_recorded_s"] = cpu / duration;
        state.counters["frames"] = static_cast<double>(stats.framesWritten);
    }
    fs::remove_all(dir);
}
BENCHMARK(BM_CaptureDisplay)->Arg(30)->Arg(60)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void BM_FfmpegX11Grab(benchmark::State& state) {
    const int fps = static_cast<int>(state.range(0));
    fs::path out = fs::temp_directory_path() / ("halvane-bench-ffmpeg-" + std::to_string(getpid()) + ".mov");
    // The same encoder settings as a take: x264 ultrafast, the take's bit rate, two-second GOP.
    std::string bitRate = std::to_string(MovieWriter::defaultBitRate(1920, 1080, fps, VideoCodec::h264) * 2);
    for (auto _ : state) {
        pid_t pid = spawn({"ffmpeg", "-y", "-f", "x11grab", "-draw_mouse", "0", "-framerate", std::to_string(fps), "-video_size",
                           "1920x1080", "-i", screen().display, "-t", std::to_string(recordSeconds), "-c:v", "libx264", "-preset",
                           "ultrafast", "-b:v", bitRate, "-g", std::to_string(fps * 2), "-pix_fmt", "yuv420p", "-movflags",
                           "+frag_keyframe+empty_moov", out.string()});
        int status = 0;
        rusage usage{};
        wait4(pid, &status, 0, &usage);
        state.counters["cpu_per_recorded_s"] = cpuSeconds(usage) / recordSeconds;
    }
    fs::remove(out);
}
BENCHMARK(BM_FfmpegX11Grab)->Arg(30)->Arg(60)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void BM_StopToPackage(benchmark::State& state) {
    fs::path dir = fs::temp_directory_path() / ("halvane-bench-take-" + std::to_string(getpid()));
    X11CapturePlatform platform(screen().display);
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove_all(dir);
        fs::create_directories(dir);
        std::deque<std::function<void()>> tasks;
        RecordingCoordinator coordinator(platform, [&tasks](std::function<void()> t) { tasks.push_back(std::move(t)); });
        coordinator.makePackageURL = [&dir](Date) { return dir / "take.halvane"; };
        bool finished = false;
        coordinator.onFinished = [&finished](std::shared_ptr<Project>) { finished = true; };
        RecordingOptions options;
        coordinator.begin({CaptureTarget::Display{0}, "Display"}, options);
        std::this_thread::sleep_for(std::chrono::seconds(5));
        state.ResumeTiming();
        double before = systemUptime();
        coordinator.stop();
        state.counters["stop_to_package_s"] = systemUptime() - before;
        if (!finished) state.SkipWithError("the take did not finish");
    }
    fs::remove_all(dir);
}
BENCHMARK(BM_StopToPackage)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
