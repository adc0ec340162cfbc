// Flattening a 3840 × 2160 document with 50 mixed marks, two of them redactions: once with a
// fresh redaction cache (first draw) and once with a warm one (every later redraw). Target for
// the cached draw: under 120 ms.
#include "Render/BitmapImage.h"
#include "Render/ImageAnnotationRenderer.h"

#include "Render/GuiApplication.h"

#include <benchmark/benchmark.h>

#include <QGuiApplication>
#include <QPainter>

#include <cmath>
#include <cstdlib>

namespace halvane {
namespace {

constexpr int documentWidth = 3840;
constexpr int documentHeight = 2160;


// Something like a screenshot: bands of colour, a grid of "text" lines, some noise.
QImage screenshotLike() {
    QImage image(documentWidth, documentHeight, QImage::Format_ARGB32_Premultiplied);
    QPainter p(&image);
    p.fillRect(image.rect(), QColor(240, 242, 245));
    for (int y = 0; y < documentHeight; y += 36)
        for (int x = 40; x < documentWidth - 400; x += 420) p.fillRect(x, y + 10, 300 + (x * 7 + y) % 90, 14, QColor(40, 44, 52));
    p.fillRect(0, 0, documentWidth, 120, QColor(30, 90, 200));
    return image;
}

class Randoms {
public:
    double next(double lo, double hi) {
        state_ = state_ * 1664525u + 1013904223u;
        return lo + (hi - lo) * (state_ >> 8) / double(1u << 24);
    }
    Point point() { return {next(100, documentWidth - 100), next(100, documentHeight - 100)}; }

private:
    uint32_t state_ = 2024;
};

std::vector<ImageAnnotation> document() {
    using Kind = ImageAnnotationKind;
    std::vector<ImageAnnotation> list;
    ImageAnnotation picture;
    picture.kind = Kind::image;
    picture.rect = Rect(0, 0, documentWidth, documentHeight);
    picture.style.shadow = false;
    picture.asset = std::make_shared<ImageAsset>(Uuid::random(), bitmapOf(screenshotLike()));
    list.push_back(picture);

    Randoms r;
    const Kind cycle[] = {Kind::arrow, Kind::rectangle, Kind::text, Kind::line, Kind::ellipse, Kind::pen,
                          Kind::counter, Kind::highlighter};
    const ArrowStyle arrows[] = {ArrowStyle::standard, ArrowStyle::fancy, ArrowStyle::curved, ArrowStyle::doubleHeaded};
    for (int i = 0; i < 46; ++i) {
        ImageAnnotation a;
        a.kind = cycle[i % 8];
        a.style.arrow = arrows[i % 4];
        a.style.size = static_cast<AnnotationSize>(i % 3);
        a.style.filled = i % 5 == 0;
        a.style.colorHex = i % 2 ? "#FF3B30" : "#34C759";
        const Point o = r.point();
        a.rect = Rect(o.x, o.y, r.next(120, 600), r.next(80, 400));
        if (a.kind == Kind::counter) a.rect.size = {126, 126};
        if (a.kind == Kind::pen || a.kind == Kind::highlighter) {
            for (int k = 0; k < 40; ++k) a.points.push_back({o.x + 12 * k, o.y + 60 * std::sin(k * 0.3)});
        } else {
            // Arrows and lines as people draw them on a screenshot: a few hundred pixels long.
            const double length = r.next(200, 900), angle = r.next(0, 6.283);
            a.points = {o, {o.x + length * std::cos(angle), o.y + length * std::sin(angle)}};
        }
        a.text = "Click here to continue";
        a.number = i + 1;
        list.push_back(a);
    }
    for (auto style : {MaskStyle::blur, MaskStyle::pixelate}) {
        ImageAnnotation redact;
        redact.kind = Kind::redact;
        redact.style.redaction = style;
        redact.rect = style == MaskStyle::blur ? Rect(400, 900, 1400, 700) : Rect(2200, 300, 900, 500);
        list.push_back(redact);
    }
    for (Rect r : {Rect(300, 300, 900, 500), Rect(1000, 500, 700, 600)}) {
        ImageAnnotation spot;
        spot.kind = Kind::spotlight;
        spot.rect = r;
        list.push_back(spot);
    }
    return list;
}

const double markScale = 3840.0 / 1100;

void flattenFirst(benchmark::State& state) {
    ensureGuiApplication();
    const auto list = document();
    for (auto _ : state) {
        RedactionCache cache;
        auto image = ImageAnnotationRenderer::flattened(list, Rect(0, 0, documentWidth, documentHeight), markScale, cache);
        benchmark::DoNotOptimize(image);
    }
    state.counters["marks"] = double(list.size() - 1);
}
BENCHMARK(flattenFirst)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void flattenCached(benchmark::State& state) {
    ensureGuiApplication();
    const auto list = document();
    RedactionCache cache;
    ImageAnnotationRenderer::flattened(list, Rect(0, 0, documentWidth, documentHeight), markScale, cache);
    for (auto _ : state) {
        auto image = ImageAnnotationRenderer::flattened(list, Rect(0, 0, documentWidth, documentHeight), markScale, cache);
        benchmark::DoNotOptimize(image);
    }
    state.counters["recomputed"] = cache.computeCount() - 2;
}
BENCHMARK(flattenCached)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace halvane

namespace halvane {
namespace {

// Parts of the cached draw, to see where its time goes.
void flattenPart(benchmark::State& state, bool (*keep)(const ImageAnnotation&)) {
    ensureGuiApplication();
    std::vector<ImageAnnotation> list;
    for (auto& a : document())
        if (keep(a)) list.push_back(a);
    RedactionCache cache;
    for (auto _ : state) {
        auto image = ImageAnnotationRenderer::flattened(list, Rect(0, 0, documentWidth, documentHeight), markScale, cache);
        benchmark::DoNotOptimize(image);
    }
}
BENCHMARK_CAPTURE(flattenPart, pictureOnly, [](const ImageAnnotation& a) { return a.kind == ImageAnnotationKind::image; })
    ->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(flattenPart, pictureAndSpotlights, [](const ImageAnnotation& a) {
    return a.kind == ImageAnnotationKind::image || a.kind == ImageAnnotationKind::spotlight;
})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(flattenPart, pictureAndShadowedMarks, [](const ImageAnnotation& a) {
    return a.kind != ImageAnnotationKind::spotlight && a.kind != ImageAnnotationKind::redact &&
           a.kind != ImageAnnotationKind::highlighter && a.kind != ImageAnnotationKind::text;
})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK_CAPTURE(flattenPart, pictureAndTexts, [](const ImageAnnotation& a) {
    return a.kind == ImageAnnotationKind::image || a.kind == ImageAnnotationKind::text;
})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
}  // namespace halvane
