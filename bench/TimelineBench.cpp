// Figures of the timeline layer: rebuilding the zooms of a long take, building its cursor table
// and asking for the render state of one frame.

#include "Model/RenderModel.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>

using namespace halvane;

namespace {

std::atomic<long> allocations{0};

}  // namespace

void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

constexpr double hour = 3600;

RecordingMeta hourMeta() {
    RecordingMeta m;
    m.mode = "display";
    m.duration = hour;
    m.pointWidth = 1440;
    return m;
}

// One hour of pointer samples at 120 Hz wandering over the screen, and one click a second.
RecordedEvents hourEvents() {
    RecordedEvents e;
    const int samples = static_cast<int>(hour * 120);
    e.samples.reserve(static_cast<size_t>(samples));
    for (int i = 0; i < samples; ++i) {
        double t = i / 120.0;
        e.samples.push_back({t, 0.5 + 0.4 * std::sin(t * 0.7), 0.5 + 0.4 * std::cos(t * 0.31)});
    }
    for (int i = 0; i < 3600; ++i) {
        double t = i + 0.5;
        double x = 0.5 + 0.4 * std::sin(t * 0.7);
        double y = 0.5 + 0.4 * std::cos(t * 0.31);
        e.clicks.push_back({t, x, y, 0, ClickPhase::down, std::nullopt});
        e.clicks.push_back({t + 0.08, x, y, 0, ClickPhase::up, std::nullopt});
    }
    return e;
}

// 200 zooms of 6 s each spread over the hour, with a few cuts and speed changes.
EditSettings hourSettings() {
    EditSettings s;
    std::vector<ZoomSegment> zooms;
    for (int i = 0; i < 200; ++i) {
        ZoomSegment z;
        z.start = i * 18.0 + 1;
        z.end = z.start + 6;
        z.level = 2;
        z.target = {0.3 + 0.002 * i, 0.6};
        z.isAuto = true;
        zooms.push_back(z);
    }
    s.zooms = std::move(zooms);
    s.cuts = {{Uuid::random(), 600, 620}, {Uuid::random(), 1800, 1830}};
    s.speeds = {{Uuid::random(), 900, 1200, 2}};
    return s;
}

const RecordedEvents& sharedEvents() {
    static const RecordedEvents events = hourEvents();
    return events;
}

void BM_RebuildZoomsOneHour(benchmark::State& state) {
    const EditSettings settings = hourSettings();
    RenderModel model(hourMeta(), sharedEvents(), settings);
    for (auto _ : state) {
        model.rebuildZooms(settings);
        benchmark::DoNotOptimize(model.effectiveZooms().data());
    }
    state.counters["zooms"] = static_cast<double>(model.effectiveZooms().size());
}
BENCHMARK(BM_RebuildZoomsOneHour)->Unit(benchmark::kMillisecond);

void BM_CursorTimelineOneHour120Hz(benchmark::State& state) {
    const RecordedEvents& events = sharedEvents();
    for (auto _ : state) {
        CursorTimeline timeline(events, 0.67, hour);
        benchmark::DoNotOptimize(timeline.points().data());
    }
}
BENCHMARK(BM_CursorTimelineOneHour120Hz)->Unit(benchmark::kMillisecond);

// A moment between clicks: no ripple is running, so nothing may be allocated.
void BM_StateWithoutRipples(benchmark::State& state) {
    const EditSettings settings = hourSettings();
    RenderModel model(hourMeta(), sharedEvents(), settings);
    double t = 1803.3;  // inside a zoom, 0.8 s after a click
    long before = allocations.load();
    long frames = 0;
    for (auto _ : state) {
        RenderState st = model.state(t, settings);
        benchmark::DoNotOptimize(st);
        t += 1e-9;
        ++frames;
    }
    state.counters["allocs/frame"] = static_cast<double>(allocations.load() - before) / static_cast<double>(frames);
}
BENCHMARK(BM_StateWithoutRipples)->Unit(benchmark::kMicrosecond);

// During a click: the ripple list is the one allocation.
void BM_StateWithRipple(benchmark::State& state) {
    const EditSettings settings = hourSettings();
    RenderModel model(hourMeta(), sharedEvents(), settings);
    long before = allocations.load();
    long frames = 0;
    for (auto _ : state) {
        RenderState st = model.state(1800.6, settings);
        benchmark::DoNotOptimize(st);
        ++frames;
    }
    state.counters["allocs/frame"] = static_cast<double>(allocations.load() - before) / static_cast<double>(frames);
}
BENCHMARK(BM_StateWithRipple)->Unit(benchmark::kMicrosecond);

}  // namespace
