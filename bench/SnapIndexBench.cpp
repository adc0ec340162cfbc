// Edge snap index figures: build time for a 1920 × 1080 and a 5120 × 2880 frozen screen, and the
// time of one nearest-edge lookup (the work done on every pointer move of a drag) over a short
// and a full-height span.
// Run: build/<dir>/bench/SnapIndexBench

#include "Capture/Screenshots/ScreenshotBoundarySnapIndex.h"
#include "Capture/Screenshots/ScreenshotBoundarySnapping.h"

#include "PixelNoise.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

using namespace halvane;

namespace {

// A desktop: a gradient wallpaper, overlapping windows with title bars, and text-like detail.
Bitmap desktop(int width, int height) {
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(std::size_t(width) * height * 4);
    auto put = [&](int x, int y, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
        std::uint8_t* p = pixels->data() + (std::size_t(y) * width + x) * 4;
        p[0] = b, p[1] = g, p[2] = r, p[3] = 255;
    };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) put(x, y, std::uint8_t(40 + y * 60 / height), 70, std::uint8_t(110 + x * 50 / width));
    for (int w = 0; w < 7; ++w) {
        const int wx = int(pixelNoise(w, 1) % std::uint32_t(width * 2 / 3));
        const int wy = int(pixelNoise(w, 2) % std::uint32_t(height * 2 / 3));
        const int ww = width / 4 + int(pixelNoise(w, 3) % std::uint32_t(width / 4));
        const int wh = height / 4 + int(pixelNoise(w, 4) % std::uint32_t(height / 4));
        for (int y = wy; y < std::min(wy + wh, height); ++y)
            for (int x = wx; x < std::min(wx + ww, width); ++x) {
                if (y < wy + 28) put(x, y, 222, 222, 226);
                else if ((y - wy) % 18 > 4 && pixelNoise(x, y) % 4 == 0) put(x, y, 30, 30, 34);
                else put(x, y, 250, 250, 250);
            }
    }
    return {width, height, width * 4, std::move(pixels)};
}

void BM_Build(benchmark::State& state) {
    const int width = int(state.range(0));
    const int height = int(state.range(1));
    const Bitmap image = desktop(width, height);
    for (auto _ : state) benchmark::DoNotOptimize(ScreenshotBoundarySnapIndex::build(image, Size{width / 2.0, height / 2.0}));
    state.SetLabel(std::to_string(width) + "x" + std::to_string(height));
}
// CPU time is that of the whole process, all build threads together.
BENCHMARK(BM_Build)->Args({1920, 1080})->Args({5120, 2880})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// Lookups at random places on a 1920 × 1080 index shown at scale 1, over a span of
// state.range(0) points, one on each axis: the planes are mostly out of cache.
void BM_LookupRandom(benchmark::State& state) {
    const Bitmap image = desktop(1920, 1080);
    const auto index = *ScreenshotBoundarySnapIndex::build(image, Size{1920, 1080});
    const double span = double(state.range(0));
    std::uint32_t i = 0;
    for (auto _ : state) {
        const double x = double(pixelNoise(i, 7) % 1900);
        const double y = double(pixelNoise(i, 8) % 1060);
        benchmark::DoNotOptimize(index.nearestVertical(x, y, std::min(y + span, 1080.0), 4));
        benchmark::DoNotOptimize(index.nearestHorizontal(y, x, std::min(x + span, 1920.0), 4));
        ++i;
    }
    state.SetItemsProcessed(state.iterations() * 2);
    state.SetLabel("span " + std::to_string(state.range(0)) + " pt, time per pair of lookups");
}
BENCHMARK(BM_LookupRandom)->Arg(300)->Arg(1080);

// Lookups as a drag makes them: the selection's corner moves a few points per event, so the
// bytes one lookup reads are mostly those the last one read.
void BM_LookupDuringDrag(benchmark::State& state) {
    const Bitmap image = desktop(1920, 1080);
    const auto index = *ScreenshotBoundarySnapIndex::build(image, Size{1920, 1080});
    const double span = double(state.range(0));
    std::uint32_t i = 0;
    for (auto _ : state) {
        const double x = 400 + double(i % 600) * 2;
        const double y = 300 + double(i % 300);
        benchmark::DoNotOptimize(index.nearestVertical(x, y - span, y, 4));
        benchmark::DoNotOptimize(index.nearestHorizontal(y, x - span, x, 4));
        ++i;
    }
    state.SetItemsProcessed(state.iterations() * 2);
    state.SetLabel("span " + std::to_string(state.range(0)) + " pt, time per pair of lookups");
}
BENCHMARK(BM_LookupDuringDrag)->Arg(300)->Arg(1080);

void BM_MovedRectangle(benchmark::State& state) {
    const Bitmap image = desktop(1920, 1080);
    const auto index = *ScreenshotBoundarySnapIndex::build(image, Size{1920, 1080});
    const Rect bounds{0, 0, 1920, 1080};
    std::uint32_t i = 0;
    for (auto _ : state) {
        const Rect r{double(pixelNoise(i, 3) % 1400), double(pixelNoise(i, 4) % 700), 480, 320};
        benchmark::DoNotOptimize(ScreenshotBoundarySnapping::movedRectangle(r, bounds, index));
        ++i;
    }
}
BENCHMARK(BM_MovedRectangle);

}  // namespace
