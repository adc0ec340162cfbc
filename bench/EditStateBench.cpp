// What one tick of a continuous gesture costs on a heavy edit: 5,000 zooms and 5,000
// annotations. Ticks arrive with every pointer move, so this bounds slider and drag latency.
#include "Model/EditState.h"

#include <benchmark/benchmark.h>

using namespace halvane;

namespace {

EditSettings heavySettings() {
    EditSettings s;
    auto& zooms = s.zooms.edit();
    auto& annotations = s.annotations.edit();
    for (int i = 0; i < 5000; ++i) {
        ZoomSegment z;
        z.start = i;
        z.end = i + 0.8;
        zooms.push_back(z);
        CanvasAnnotation a;
        a.start = i;
        a.end = i + 2;
        a.text = "Step " + std::to_string(i);
        annotations.push_back(a);
    }
    return s;
}

// One observer that reads the settings, as the render model does.
void observe(EditState& state, int64_t& seen) {
    state.onChange.push_back([&state, &seen](EditState::Change) { seen += static_cast<int64_t>(state.settings().zooms.size()); });
}

void BM_GestureTickSlider(benchmark::State& st) {
    EditState state(heavySettings());
    int64_t seen = 0;
    observe(state, seen);
    double v = 0;
    for (auto _ : st) {
        v += 0.0001;
        state.editGesture("undo.padding", EditState::Change::appearance, [v](EditSettings& s) { s.padding = v; });
    }
    state.commitGesture();
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_GestureTickSlider)->Unit(benchmark::kMicrosecond);

void BM_GestureTickZoomDrag(benchmark::State& st) {
    EditState state(heavySettings());
    int64_t seen = 0;
    observe(state, seen);
    double v = 0;
    for (auto _ : st) {
        v += 0.0001;
        state.editGesture("undo.moveZoom", EditState::Change::zooms, [v](EditSettings& s) { s.zooms.edit()[2500].start = 2500 + v; });
    }
    state.commitGesture();
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_GestureTickZoomDrag)->Unit(benchmark::kMicrosecond);

// A whole drag: open, 60 ticks, commit (the commit compares and records one step).
void BM_ZoomDragOf60Ticks(benchmark::State& st) {
    EditState state(heavySettings());
    int64_t seen = 0;
    observe(state, seen);
    double v = 0;
    for (auto _ : st) {
        for (int i = 0; i < 60; ++i) {
            v += 0.0001;
            state.editGesture("undo.moveZoom", EditState::Change::zooms, [v](EditSettings& s) { s.zooms.edit()[2500].start = 2500 + v; });
        }
        state.commitGesture();
    }
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_ZoomDragOf60Ticks)->Unit(benchmark::kMicrosecond);

// A single step: snapshot, mutate, record in the history, notify.
void BM_EditStep(benchmark::State& st) {
    EditState state(heavySettings());
    int64_t seen = 0;
    observe(state, seen);
    double v = 0;
    for (auto _ : st) {
        v += 0.0001;
        state.edit("undo.padding", EditState::Change::appearance, [v](EditSettings& s) { s.padding = v; });
    }
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_EditStep)->Unit(benchmark::kMicrosecond);

void BM_UndoRedo(benchmark::State& st) {
    EditState state(heavySettings());
    int64_t seen = 0;
    observe(state, seen);
    state.edit("undo.moveZoom", EditState::Change::zooms, [](EditSettings& s) { s.zooms.edit()[10].level = 2; });
    for (auto _ : st) {
        state.undo();
        state.redo();
    }
    benchmark::DoNotOptimize(seen);
}
BENCHMARK(BM_UndoRedo)->Unit(benchmark::kMicrosecond);

}  // namespace
