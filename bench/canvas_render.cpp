// Costs of the canvas's static layers and the shared raster kernels, one core.
#include "Render/BackgroundRenderer.h"
#include "Render/CursorArt.h"
#include "Render/RasterKernels.h"
#include "Render/ShadowProfile.h"

#include <benchmark/benchmark.h>

#include <QPainter>

namespace halvane {
namespace {

QImage noisyFrame(int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    uint32_t state = 12345;
    for (int y = 0; y < h; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(image.scanLine(y));
        for (int x = 0; x < w; ++x) {
            state = state * 1664525u + 1013904223u;
            row[x] = 0xFF000000u | (state >> 8);
        }
    }
    return image;
}

// Target with blur 1.0: under 300 ms.
void meshWallpaper4K(benchmark::State& state) {
    BackgroundRenderer renderer;
    const double blur = static_cast<double>(state.range(0)) / 100;
    for (auto _ : state) {
        renderer.purge();
        auto image = renderer.image(CanvasBackground::wallpaper("prism"), {3840, 2160}, std::nullopt, blur);
        benchmark::DoNotOptimize(image);
    }
}
BENCHMARK(meshWallpaper4K)->Arg(100)->Arg(0)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

// Target at sigma 20: under 15 ms on one core.
void gaussianBlur1080p(benchmark::State& state) {
    const QImage source = noisyFrame(1920, 1080);
    const double sigma = static_cast<double>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        QImage image = source.copy();
        state.ResumeTiming();
        gaussianBlur(image, sigma);
        benchmark::DoNotOptimize(image.constBits());
    }
}
BENCHMARK(gaussianBlur1080p)->Arg(20)->Arg(2)->Arg(5)->Unit(benchmark::kMillisecond)->UseRealTime();

void backgroundCacheHit(benchmark::State& state) {
    BackgroundRenderer renderer;
    const auto background = CanvasBackground::wallpaper("prism");
    renderer.image(background, {1920, 1080}, std::nullopt, 0.5);
    for (auto _ : state) {
        auto image = renderer.image(background, {1920, 1080}, std::nullopt, 0.5);
        benchmark::DoNotOptimize(image);
    }
}
BENCHMARK(backgroundCacheHit)->Unit(benchmark::kMicrosecond);

void pixellate1080pMask(benchmark::State& state) {
    QImage image = noisyFrame(1920, 1080);
    for (auto _ : state) {
        pixellate(image, 24, QPointF(400, 700), QRect(400, 300, 800, 400));
        benchmark::DoNotOptimize(image.constBits());
    }
}
BENCHMARK(pixellate1080pMask)->Unit(benchmark::kMillisecond);

void maskBlend1080p(benchmark::State& state) {
    QImage destination = noisyFrame(1920, 1080);
    const QImage source = noisyFrame(1920, 1080);
    QImage mask(1920, 1080, QImage::Format_Grayscale8);
    mask.fill(0);
    QPainter(&mask).fillRect(QRect(200, 100, 1500, 800), Qt::white);
    for (auto _ : state) {
        maskBlend(destination, source, mask);
        benchmark::DoNotOptimize(destination.constBits());
    }
}
BENCHMARK(maskBlend1080p)->Unit(benchmark::kMillisecond);

void cardShadow4K(benchmark::State& state) {
    QImage canvas(3840, 2160, QImage::Format_ARGB32_Premultiplied);
    QPainterPath card;
    card.addRoundedRect(QRectF(400, 250, 3040, 1660), 40, 40);
    for (auto _ : state) {
        canvas.fill(Qt::white);
        ShadowProfile(0.6).draw(canvas, card, 1660);
        benchmark::DoNotOptimize(canvas.constBits());
    }
}
BENCHMARK(cardShadow4K)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void systemCursorsFirstUse(benchmark::State& state) {
    for (auto _ : state) {
        for (int i = 0; i < 10; ++i) benchmark::DoNotOptimize(CursorArt::themeCursor(static_cast<CursorShape>(i)));
    }
}
BENCHMARK(systemCursorsFirstUse)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace halvane
