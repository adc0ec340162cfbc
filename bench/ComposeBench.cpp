// Frame composition at 1920 x 1080 on one thread (run under `taskset -c 0`): a full frame with every common layer, the
// motion blur worst case, the statics per border style and the liquid glass band.

#include "Media/MovieFrames.h"
#include "Media/MovieWriter.h"
#include "Render/CanvasLayout.h"
#include "Render/CardBorder.h"
#include "Render/FrameComposer.h"
#include "Render/LiquidGlass.h"

#include "Render/GuiApplication.h"

#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QPainter>

#include <ctime>
#include <filesystem>
#include <memory>

using namespace halvane;

namespace {

class StillFrames : public FrameSource {
public:
    StillFrames() : image_(1920, 1080, QImage::Format_ARGB32_Premultiplied) {
        image_.fill(QColor(245, 245, 247));
        QPainter p(&image_);
        p.setPen(Qt::black);
        for (int y = 40; y < 1080; y += 28) p.drawText(60, y, "The quick brown fox jumps over the lazy dog 0123456789");
    }
    const QImage* frame(double) override { return &image_; }

private:
    QImage image_;
};

double processCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

// CPU time of the whole process per iteration, in ms: the "CPU" column counts the benchmark's own
// thread only, and would hide work that Qt hands to its thread pool.
class ProcessCpu {
public:
    explicit ProcessCpu(benchmark::State& state) : state_(state), start_(processCpuSeconds()) {}
    ~ProcessCpu() {
        state_.counters["process_cpu_ms"] =
            benchmark::Counter((processCpuSeconds() - start_) * 1000, benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State& state_;
    double start_;
};

CompositionInput busyTake(bool motionBlur) {
    CompositionInput in;
    in.meta.pixelWidth = 1920;
    in.meta.pixelHeight = 1080;
    in.meta.pointWidth = 960;
    in.meta.pointHeight = 540;
    in.meta.duration = 20;
    for (int i = 0; i < 20 * 120; ++i) {
        double t = i / 120.0;
        in.events.samples.push_back({t, 0.3 + 0.2 * std::sin(t), 0.4 + 0.1 * std::cos(t)});
    }
    in.events.clicks.push_back({5.0, 0.4, 0.4, 0, ClickPhase::down, std::nullopt});
    in.events.clicks.push_back({5.1, 0.4, 0.4, 0, ClickPhase::up, std::nullopt});
    in.events.keys.push_back({5.0, "s", modifierCommand});
    in.settings.background = CanvasBackground::wallpaper("prism");
    in.settings.motionBlur = motionBlur;
    ZoomSegment zoom;
    zoom.start = 3;
    zoom.end = 12;
    zoom.level = 2;
    zoom.target = {0.4, 0.4};
    in.settings.zooms = {zoom};
    in.settings.captionsEnabled = true;
    Transcript transcript;
    transcript.locale = "en_US";
    TranscriptCue cue;
    cue.text = "Here is how the export looks";
    cue.start = 4;
    cue.end = 7;
    transcript.cues = {cue};
    in.transcript = transcript;
    in.canvasSize = {1920, 1080};
    in.fps = 60;
    return in;
}


void BM_ComposeFullFrame(benchmark::State& state) {
    ensureGuiApplication();
    StillFrames frames;
    FrameComposer composer(busyTake(false), {&frames});
    composer.buildStatics();
    // 5.05 s: zoomed in, with a ripple, a caption and a keystroke pill; 1 s: the whole source,
    // scaled down into the card.
    const double t = state.range(0) / 100.0;
    composer.composeOutputFrame(t);  // warm the caption and keystroke caches
    ProcessCpu cpu(state);
    for (auto _ : state) benchmark::DoNotOptimize(composer.composeOutputFrame(t));
}
BENCHMARK(BM_ComposeFullFrame)->Arg(505)->Arg(100)->Unit(benchmark::kMillisecond);

// The same frame with a 1280 x 720 camera in the bubble.
void BM_ComposeWithWebcam(benchmark::State& state) {
    ensureGuiApplication();
    StillFrames frames;
    class Camera : public FrameSource {
    public:
        Camera() : image_(1280, 720, QImage::Format_ARGB32_Premultiplied) { image_.fill(QColor(180, 140, 120)); }
        const QImage* frame(double) override { return &image_; }

    private:
        QImage image_;
    } camera;
    FrameComposer composer(busyTake(false), {&frames}, &camera);
    composer.composeOutputFrame(5.05);
    ProcessCpu cpu(state);
    for (auto _ : state) benchmark::DoNotOptimize(composer.composeOutputFrame(5.05));
}
BENCHMARK(BM_ComposeWithWebcam)->Unit(benchmark::kMillisecond);

void BM_ComposeMotionBlurWorstCase(benchmark::State& state) {
    ensureGuiApplication();
    StillFrames frames;
    FrameComposer composer(busyTake(true), {&frames});
    composer.buildStatics();
    // The fastest camera move: the frame with the most samples.
    double worst = 3;
    int most = 1;
    for (double t = 2.5; t < 5; t += 1.0 / 60) {
        int n = composer.motionBlurSamples(t);
        if (n > most) most = n, worst = t;
    }
    state.counters["samples"] = most;
    composer.composeOutputFrame(worst);
    ProcessCpu cpu(state);
    for (auto _ : state) benchmark::DoNotOptimize(composer.composeOutputFrame(worst));
}
BENCHMARK(BM_ComposeMotionBlurWorstCase)->Unit(benchmark::kMillisecond);

// Two windows side by side at 1080p, the second coming to the front: at 4.1 s its card is lifted
// over the first while the first dims; at 8 s both stand still.
void BM_ComposeMultiSourceFrame(benchmark::State& state) {
    ensureGuiApplication();
    StillFrames frames, second;
    CompositionInput in = busyTake(false);
    in.settings.zooms = {};
    in.meta.mode = "windows";
    in.meta.version = 2;
    in.meta.sources = {RecordingSource{"screen.mov", "A", 1920, 1080, 960, 540, 0},
                       RecordingSource{"screen-2.mov", "B", 1920, 1080, 960, 540, 0}};
    FocusSegment focus;
    focus.start = 4;
    focus.source = 1;
    in.settings.focusSwitches = {focus};
    FrameComposer composer(in, {&frames, &second});
    const double t = state.range(0) / 10.0;
    composer.composeOutputFrame(t);
    ProcessCpu cpu(state);
    for (auto _ : state) benchmark::DoNotOptimize(composer.composeOutputFrame(t));
}
BENCHMARK(BM_ComposeMultiSourceFrame)->Arg(41)->Arg(80)->Unit(benchmark::kMillisecond);

// A 1080p screen movie of two seconds at 60 fps: text with a block moving over it, made once.
std::filesystem::path screenMovie() {
    static const std::filesystem::path path = [] {
        auto file = std::filesystem::temp_directory_path() / "halvane-compose-bench-screen.mp4";
        MovieWriterSettings settings;
        settings.width = 1920;
        settings.height = 1080;
        settings.fps = 60;
        settings.preset = "ultrafast";
        MovieWriter writer(file, settings);
        StillFrames still;
        for (int i = 0; i < 120; ++i) {
            QImage picture = still.frame(0)->copy();
            QPainter(&picture).fillRect(200 + 12 * i, 300, 160, 90, QColor(40, 90, 200));
            writer.appendVideoFrame(picture.constBits(), int(picture.bytesPerLine()), i / 60.0);
        }
        writer.finish();
        return file;
    }();
    return path;
}

// The movie's frames shifted to a chosen moment of the take; passing on the composer's region of
// interest or not.
class ShiftedMovie : public FrameSource {
public:
    ShiftedMovie(double shift, bool regions) : movie_(screenMovie(), 0, 2), shift_(shift), regions_(regions) {}
    const QImage* frame(double t) override { return movie_.frame(t - shift_); }
    const Yuv420View* planarFrame(double t) override { return movie_.planarFrame(t - shift_); }
    void setRegionOfInterest(const Rect& unit) override {
        if (regions_) movie_.setRegionOfInterest(unit);
    }

private:
    MovieFrames movie_;
    double shift_;
    bool regions_;
};

// Decoding, converting and composing one second of frames in turn, as the export does. Arguments:
// the take's second (5: zoomed in, 1: whole source), whether only the shown region is converted,
// and whether the frame is composed in the encoder's planar form (what the movie export does).
void BM_DecodeAndCompose(benchmark::State& state) {
    ensureGuiApplication();
    const double start = double(state.range(0));
    const bool regions = state.range(1) != 0, planar = state.range(2) != 0;
    std::unique_ptr<ShiftedMovie> source;
    std::unique_ptr<FrameComposer> composer;
    auto compose = [&](double t) { return planar ? composer->composeOutputPlanar(t) : composer->composeOutputFrame(t); };
    auto restart = [&] {
        source = std::make_unique<ShiftedMovie>(start, regions);
        composer = std::make_unique<FrameComposer>(busyTake(false), std::vector<FrameSource*>{source.get()});
        compose(start);
    };
    restart();
    int k = 1;
    ProcessCpu cpu(state);
    for (auto _ : state) {
        if (k == 60) {
            state.PauseTiming();
            restart();
            k = 1;
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(compose(start + k++ / 60.0));
    }
    state.SetLabel(planar ? "planar" : regions ? "shown region converted" : "whole picture converted");
}
BENCHMARK(BM_DecodeAndCompose)
    ->Args({5, 1, 0})
    ->Args({5, 0, 0})
    ->Args({1, 1, 0})
    ->Args({5, 1, 1})
    ->Args({1, 1, 1})
    ->Unit(benchmark::kMillisecond);

void BM_BuildStatics(benchmark::State& state) {
    ensureGuiApplication();
    StillFrames frames;
    CompositionInput in = busyTake(false);
    in.settings.borderWidth = 1;
    in.settings.borderStyle = CardBorderStyle(state.range(0));
    ProcessCpu cpu(state);
    for (auto _ : state) {
        FrameComposer composer(in, {&frames});
        benchmark::DoNotOptimize(composer.buildStatics());
    }
    state.SetLabel(std::string(enumName(in.settings.borderStyle)));
}
BENCHMARK(BM_BuildStatics)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_LiquidGlassBand(benchmark::State& state) {
    ensureGuiApplication();
    QImage background(1920, 1080, QImage::Format_ARGB32_Premultiplied);
    background.fill(QColor(90, 60, 200));
    auto layout = CanvasLayout::cardLayout({1920, 1080}, 16.0 / 9.0, 0.07, 0, 0.016);
    auto band = CardBorder::band(CardBorderStyle::liquid, 1, layout.card, layout.cardRadius, {1920, 1080});
    LiquidGlass glass;
    ProcessCpu cpu(state);
    for (auto _ : state) benchmark::DoNotOptimize(glass.image(*band, background, Rect{0, 0, 1920, 1080}, 1));
}
BENCHMARK(BM_LiquidGlassBand)->Unit(benchmark::kMillisecond);

}  // namespace
