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

// A heavy edit with one observer that reads the settings, as the render model does.
struct HeavyEdit {
    EditState state{heavySettings()};
    int64_t seen = 0;
    double v = 0;

    HeavyEdit() {
        state.onChange.push_back([this](EditState::Change) { seen += static_cast<int64_t>(state.settings().zooms.size()); });
    }
    void sliderTick() {
        v += 0.0001;
        state.editGesture("undo.padding", EditState::Change::appearance, [x = v](EditSettings& s) { s.padding = x; });
    }
    void zoomDragTick() {
        v += 0.0001;
        state.editGesture("undo.moveZoom", EditState::Change::zooms, [x = v](EditSettings& s) { s.zooms.edit()[2500].start = 2500 + x; });
    }
};

void BM_GestureTickSlider(benchmark::State& st) {
    HeavyEdit edit;
    for (auto _ : st) edit.sliderTick();
    edit.state.commitGesture();
    benchmark::DoNotOptimize(edit.seen);
}
BENCHMARK(BM_GestureTickSlider)->Unit(benchmark::kMicrosecond);

void BM_GestureTickZoomDrag(benchmark::State& st) {
    HeavyEdit edit;
    for (auto _ : st) edit.zoomDragTick();
    edit.state.commitGesture();
    benchmark::DoNotOptimize(edit.seen);
}
BENCHMARK(BM_GestureTickZoomDrag)->Unit(benchmark::kMicrosecond);

// A whole drag: open, 60 ticks, commit (the commit compares and records one step).
void BM_ZoomDragOf60Ticks(benchmark::State& st) {
    HeavyEdit edit;
    for (auto _ : st) {
        for (int i = 0; i < 60; ++i) edit.zoomDragTick();
        edit.state.commitGesture();
    }
    benchmark::DoNotOptimize(edit.seen);
}
BENCHMARK(BM_ZoomDragOf60Ticks)->Unit(benchmark::kMicrosecond);

// A single step: snapshot, mutate, record in the history, notify.
void BM_EditStep(benchmark::State& st) {
    HeavyEdit edit;
    for (auto _ : st) {
        edit.v += 0.0001;
        edit.state.edit("undo.padding", EditState::Change::appearance, [x = edit.v](EditSettings& s) { s.padding = x; });
    }
    benchmark::DoNotOptimize(edit.seen);
}
BENCHMARK(BM_EditStep)->Unit(benchmark::kMicrosecond);

void BM_UndoRedo(benchmark::State& st) {
    HeavyEdit edit;
    edit.state.edit("undo.moveZoom", EditState::Change::zooms, [](EditSettings& s) { s.zooms.edit()[10].level = 2; });
    for (auto _ : st) {
        edit.state.undo();
        edit.state.redo();
    }
    benchmark::DoNotOptimize(edit.seen);
}
BENCHMARK(BM_UndoRedo)->Unit(benchmark::kMicrosecond);

}  // namespace
