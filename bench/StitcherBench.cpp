// Scrolling stitcher figures: time to turn one 1600 × 1000 grab into a frame and ingest it
// (signature, offset estimate, appended rows), the parts of that on their own, compose and the
// preview tail, and the memory a 40-frame capture holds at its peak.
// Run: build/<dir>/bench/StitcherBench --benchmark_counters_tabular=true

#include "Capture/Screenshots/ScrollingCaptureStitcher.h"
#include "Capture/Screenshots/ScrollingRowMatch.h"

#include "PixelNoise.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace halvane;

namespace {

constexpr int frameWidth = 1600;
constexpr int frameHeight = 1000;
constexpr int headerRows = 60;
constexpr int footerRows = 40;
constexpr int captureFrames = 40;
constexpr int steps[] = {300, 420, 180, 350, 260};

// One row of a long text page, a function of its row number alone, so any scroll position can
// be drawn without keeping the page: lines of 26 rows with 8 blank, words of varied length.
void drawContentRow(int row, std::uint8_t* out) {
    std::fill_n(out, frameWidth * 4, std::uint8_t(252));
    const int line = row / 26;
    const int inLine = row % 26;
    if (inLine < 8) return;
    const int lineEnd = 400 + int(pixelNoise(line, 1) % 1100);
    for (int x = 30, word = 0; x < lineEnd; ++word) {
        const int length = 20 + int(pixelNoise(line, word + 2) % 90);
        for (int col = x; col < std::min(x + length, frameWidth); ++col)
            if (pixelNoise(col, row) % 3 == 0) {
                std::uint8_t* p = out + col * 4;
                p[0] = p[1] = p[2] = std::uint8_t(pixelNoise(row, col) % 80);
            }
        x += length + 12;
    }
}

Bitmap grab(int scroll) {
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(std::size_t(frameWidth) * frameHeight * 4);
    for (int y = 0; y < frameHeight; ++y) {
        std::uint8_t* row = pixels->data() + std::size_t(y) * frameWidth * 4;
        if (y < headerRows || y >= frameHeight - footerRows) {
            for (int x = 0; x < frameWidth; ++x) {
                row[x * 4] = 90, row[x * 4 + 1] = 50, row[x * 4 + 2] = 30;
                row[x * 4 + 3] = 255;
            }
        } else {
            drawContentRow(scroll + y - headerRows, row);
            for (int x = 0; x < frameWidth; ++x) row[x * 4 + 3] = 255;
        }
    }
    return {frameWidth, frameHeight, frameWidth * 4, std::move(pixels)};
}

std::vector<int> captureScrolls() {
    std::vector<int> scrolls{0};
    for (int i = 1; i < captureFrames; ++i) scrolls.push_back(scrolls.back() + steps[i % 5]);
    return scrolls;
}

ScrollingCaptureStitcher::Configuration sessionConfiguration() { return {268'435'456, 120}; }

// Peak resident memory since the last reset, in MiB.
double peakResidentMiB() {
    std::ifstream status("/proc/self/status");
    std::string key;
    while (status >> key) {
        if (key == "VmHWM:") {
            double kib = 0;
            status >> kib;
            return kib / 1024;
        }
        status.ignore(1 << 20, '\n');
    }
    return 0;
}

void resetPeakResident() { std::ofstream("/proc/self/clear_refs") << "5"; }

// Build a frame from a grab and ingest it: the work the session's worker does per grab.
void BM_IngestFrame(benchmark::State& state) {
    const auto scrolls = captureScrolls();
    std::vector<Bitmap> grabs;
    for (int scroll : scrolls) grabs.push_back(grab(scroll));
    auto stitcher = std::make_unique<ScrollingCaptureStitcher>(sessionConfiguration());
    std::size_t next = 0;
    int matched = 0;
    for (auto _ : state) {
        if (next == grabs.size()) {
            state.PauseTiming();
            stitcher = std::make_unique<ScrollingCaptureStitcher>(sessionConfiguration());
            next = 0;
            state.ResumeTiming();
        }
        const auto frame = ScrollingFrame::make(grabs[next++], 16);
        const auto outcome = stitcher->ingest(*frame);
        matched += outcome.tag == ScrollingCaptureStitcher::Outcome::Tag::matched;
        benchmark::DoNotOptimize(outcome);
    }
    state.counters["matched_share"] = double(matched) / double(state.iterations());
    state.SetLabel("1600x1000, steps 180-420 rows");
}
// CPU time is that of the whole process, the parallel signature rows and anchors included.
BENCHMARK(BM_IngestFrame)->Unit(benchmark::kMillisecond)->Iterations(200)->MeasureProcessCPUTime()->UseRealTime();

void BM_RowSignature(benchmark::State& state) {
    const Bitmap image = grab(1234);
    for (auto _ : state)
        benchmark::DoNotOptimize(ScrollingRowSignature(image.pixels->data(), frameWidth, frameHeight, 16));
}
BENCHMARK(BM_RowSignature)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_EstimateOffset(benchmark::State& state) {
    const auto before = ScrollingFrame::make(grab(1000), 16);
    const auto after = ScrollingFrame::make(grab(1000 + int(state.range(0))), 16);
    for (auto _ : state)
        benchmark::DoNotOptimize(ScrollingRowMatch::estimateOffset(before->signature, after->signature, headerRows,
                                                                   frameHeight - footerRows, std::nullopt));
}
BENCHMARK(BM_EstimateOffset)->Arg(40)->Arg(420)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();

// A whole 40-frame capture, then compose: the peak resident memory of the process while it
// runs (grabs drawn one at a time, as a session has them) and the time to compose the result.
void BM_Capture40Frames(benchmark::State& state) {
    double peak = 0;
    double bodyMiB = 0;
    int rows = 0;
    for (auto _ : state) {
        resetPeakResident();
        ScrollingCaptureStitcher stitcher(sessionConfiguration());
        for (int scroll : captureScrolls()) stitcher.ingest(*ScrollingFrame::make(grab(scroll), 16));
        const auto picture = stitcher.compose();
        const auto preview = stitcher.previewTail(480);
        benchmark::DoNotOptimize(preview);
        rows = picture ? picture->height : 0;
        bodyMiB = double(stitcher.bodyBytes()) / (1 << 20);
        peak = std::max(peak, peakResidentMiB());
    }
    state.counters["peak_rss_MiB"] = peak;
    state.counters["body_MiB"] = bodyMiB;
    state.counters["result_rows"] = rows;
}
BENCHMARK(BM_Capture40Frames)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_Compose(benchmark::State& state) {
    ScrollingCaptureStitcher stitcher(sessionConfiguration());
    for (int scroll : captureScrolls()) stitcher.ingest(*ScrollingFrame::make(grab(scroll), 16));
    for (auto _ : state) benchmark::DoNotOptimize(stitcher.compose());
    state.counters["rows"] = stitcher.canvasRows();
}
BENCHMARK(BM_Compose)->Unit(benchmark::kMillisecond);

// The preview after each new frame: only the new chunk is scaled, the rest comes from caches.
void BM_PreviewTailAfterFrame(benchmark::State& state) {
    const auto scrolls = captureScrolls();
    std::vector<ScrollingFrame> frames;
    for (int i = 0; i < 12; ++i) frames.push_back(*ScrollingFrame::make(grab(scrolls[std::size_t(i)]), 16));
    auto stitcher = std::make_unique<ScrollingCaptureStitcher>(sessionConfiguration());
    std::size_t next = 0;
    for (auto _ : state) {
        state.PauseTiming();
        if (next == frames.size()) {
            stitcher = std::make_unique<ScrollingCaptureStitcher>(sessionConfiguration());
            next = 0;
        }
        stitcher->ingest(frames[next++]);
        state.ResumeTiming();
        benchmark::DoNotOptimize(stitcher->previewTail(480));
    }
}
BENCHMARK(BM_PreviewTailAfterFrame)->Unit(benchmark::kMicrosecond);

}  // namespace
