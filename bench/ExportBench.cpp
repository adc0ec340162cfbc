// Export throughput on a screen-like take: 30 s of 1920 × 1080 at 60 fps with text, scrolling and
// a moving pointer. The movie benchmark decodes the take and encodes it again at 1080p60 through
// MovieWriter, decoding the next frame while the current one is encoded (as the export overlaps
// composition with encoding); the GIF benchmark writes 720p at 20 fps through GifWriter.
// scripts/bench-compare runs each case in its own process and sets the figures beside ffmpeg's.
//
// The take is made once and kept in $HALVANE_BENCH_DIR (default /tmp/halvane-bench).

#include "Media/FrameSequence.h"
#include "Media/GifWriter.h"
#include "Media/MovieWriter.h"
#include "Render/PixelConversion.h"

#include "Render/GuiApplication.h"

#include <benchmark/benchmark.h>

#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>

#include <sys/resource.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <mutex>
#include <thread>

namespace fs = std::filesystem;
using namespace halvane;

namespace {

constexpr int takeWidth = 1920;
constexpr int takeHeight = 1080;
constexpr double takeFPS = 60;
constexpr double takeSeconds = 30;

fs::path benchDirectory() {
    const char* dir = std::getenv("HALVANE_BENCH_DIR");
    fs::path path = dir && *dir ? dir : "/tmp/halvane-bench";
    fs::create_directories(path);
    return path;
}

fs::path takePath() { return benchDirectory() / "take-1080p60.mov"; }

double peakMemoryMB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024.0;
}


// A long page of prose and code, drawn once; the take scrolls a window over it.
QImage makeDocument() {
    QImage page(takeWidth - 200, 7000, QImage::Format_ARGB32_Premultiplied);
    page.fill(Qt::white);
    QPainter p(&page);
    p.setRenderHint(QPainter::TextAntialiasing);
    QFont prose("DejaVu Sans", 15);
    QFont code("DejaVu Sans Mono", 14);
    const char* words[] = {"export", "canvas", "pointer", "zoom", "frame", "timeline", "audio",
                           "package", "render", "cursor", "the", "of", "and", "with", "a",
                           "settings", "preview", "speed", "cut", "music"};
    unsigned seed = 7;
    auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 16) & 0x7FFF; };
    int y = 60;
    for (int block = 0; y < page.height() - 80; ++block) {
        if (block % 4 == 3) {
            p.fillRect(60, y - 24, page.width() - 120, 8 * 24 + 16, QColor(246, 247, 250));
            p.setFont(code);
            for (int line = 0; line < 8; ++line, y += 24) {
                p.setPen(line % 3 == 0 ? QColor(170, 55, 140) : QColor(40, 90, 170));
                std::string text = std::string(static_cast<size_t>(next() % 6) * 2, ' ') + "let " +
                                   words[next() % 20] + " = " + words[next() % 20] + "(" +
                                   std::to_string(next() % 1000) + ");";
                p.drawText(80, y, QString::fromStdString(text));
            }
            y += 30;
        } else {
            p.setFont(prose);
            p.setPen(QColor(30, 30, 35));
            for (int line = 0; line < 6; ++line, y += 28) {
                std::string text;
                while (text.size() < 150) text += std::string(words[next() % 20]) + " ";
                p.drawText(80, y, QString::fromStdString(text));
            }
            y += 24;
        }
    }
    return page;
}

// Scrolls in bursts (two seconds moving, one still), with a pointer tracing a slow figure.
void drawTakeFrame(QPainter& p, const QImage& page, double t) {
    p.fillRect(0, 0, takeWidth, takeHeight, QColor(52, 54, 60));
    p.fillRect(0, 0, takeWidth, 44, QColor(225, 226, 230));
    p.setPen(QColor(60, 60, 60));
    p.setFont(QFont("DejaVu Sans", 13));
    p.drawText(20, 28, "Halvane — export benchmark take");
    double cycle = std::floor(t / 3);
    double within = std::min(std::fmod(t, 3.0), 2.0);
    double scroll = (cycle * 2 + within) * 90;
    scroll = std::fmod(scroll, page.height() - takeHeight);
    p.drawImage(QPointF(100, 44), page, QRectF(0, scroll, page.width(), takeHeight - 44));
    QPointF pointer(960 + 700 * std::sin(t * 0.7), 560 + 380 * std::sin(t * 1.1));
    QPainterPath arrow;
    arrow.moveTo(pointer);
    arrow.lineTo(pointer + QPointF(0, 26));
    arrow.lineTo(pointer + QPointF(7, 20));
    arrow.lineTo(pointer + QPointF(18, 20));
    arrow.closeSubpath();
    p.setRenderHint(QPainter::Antialiasing);
    p.fillPath(arrow, Qt::black);
    p.strokePath(arrow, QPen(Qt::white, 1.5));
    p.setRenderHint(QPainter::Antialiasing, false);
}

void makeTakeIfMissing() {
    if (fs::exists(takePath())) return;
    ensureGuiApplication();
    QImage page = makeDocument();
    QImage frame(takeWidth, takeHeight, QImage::Format_ARGB32_Premultiplied);
    MovieWriterSettings settings;
    settings.width = takeWidth;
    settings.height = takeHeight;
    settings.fps = takeFPS;
    settings.preset = "ultrafast";
    settings.bitRate = 40'000'000;
    settings.container = MovieContainer::mov;
    auto partial = fs::path(takePath()).concat(".making");
    MovieWriter writer(partial, settings);
    const int frames = static_cast<int>(takeSeconds * takeFPS);
    for (int i = 0; i < frames; ++i) {
        QPainter p(&frame);
        drawTakeFrame(p, page, i / takeFPS);
        p.end();
        writer.appendVideoFrame(frame.constBits(), static_cast<int>(frame.bytesPerLine()),
                                i / takeFPS);
    }
    writer.finish();
    fs::rename(partial, takePath());
}

// Hands decoded frames from a reader thread to the encoding thread, at most three in flight.
class FrameQueue {
public:
    void push(QImage image) {
        std::unique_lock lock(mutex_);
        space_.wait(lock, [&] { return queue_.size() < 3; });
        queue_.push_back(std::move(image));
        ready_.notify_one();
    }
    void close() {
        std::lock_guard lock(mutex_);
        closed_ = true;
        ready_.notify_one();
    }
    bool pop(QImage& out) {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return !queue_.empty() || closed_; });
        if (queue_.empty()) return false;
        out = std::move(queue_.front());
        queue_.pop_front();
        space_.notify_one();
        return true;
    }

private:
    std::mutex mutex_;
    std::condition_variable ready_, space_;
    std::deque<QImage> queue_;
    bool closed_ = false;
};

// Decodes output frames at `fps` (scaled to `size`) on a thread of its own.
std::thread startReader(FrameQueue& queue, double fps, Size size) {
    return std::thread([&queue, fps, size] {
        FrameSequence frames(takePath(), 0, takeSeconds, size);
        const int count = static_cast<int>(std::floor(takeSeconds * fps + 1e-9));
        for (int i = 0; i < count; ++i) {
            const QImage* image = frames.image(i / fps);
            if (image) queue.push(image->copy());
        }
        queue.close();
    });
}

void BM_MakeTake(benchmark::State& state) {
    for (auto _ : state) makeTakeIfMissing();
    state.counters["maxrss_MB"] = peakMemoryMB();
}
BENCHMARK(BM_MakeTake)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MovieExport(benchmark::State& state, std::string preset) {
    makeTakeIfMissing();
    auto out = benchDirectory() / ("export-" + preset + ".mp4");
    int64_t frames = 0;
    for (auto _ : state) {
        MovieWriterSettings settings;
        settings.width = takeWidth;
        settings.height = takeHeight;
        settings.fps = takeFPS;
        settings.preset = preset;
        FrameQueue queue;
        MovieWriter writer(out, settings);
        auto reader = startReader(queue, takeFPS, {});
        QImage image;
        frames = 0;
        while (queue.pop(image)) {
            writer.appendVideoFrame(image.constBits(), static_cast<int>(image.bytesPerLine()),
                                    frames / takeFPS);
            ++frames;
        }
        reader.join();
        writer.finish();
    }
    state.counters["frames"] = static_cast<double>(frames);
    state.counters["fps"] = benchmark::Counter(static_cast<double>(frames) * state.iterations(),
                                               benchmark::Counter::kIsRate);
    state.counters["bytes"] = static_cast<double>(fs::file_size(out));
    state.counters["maxrss_MB"] = peakMemoryMB();
}

void BM_GifExport(benchmark::State& state) {
    makeTakeIfMissing();
    auto out = benchDirectory() / "export.gif";
    const double fps = 20;
    int64_t frames = 0;
    for (auto _ : state) {
        FrameQueue queue;
        GifWriter writer(out, GifWriterSettings{1280, 720, fps});
        auto reader = startReader(queue, fps, {1280, 720});
        QImage image;
        while (queue.pop(image))
            writer.appendFrame(image.constBits(), static_cast<int>(image.bytesPerLine()));
        reader.join();
        frames = writer.framesAppended();
        writer.finish();
    }
    state.counters["frames"] = static_cast<double>(frames);
    state.counters["bytes"] = static_cast<double>(fs::file_size(out));
    state.counters["maxrss_MB"] = peakMemoryMB();
}

// The colour conversion every exported frame passes through on its way to the encoder.
void BM_BgraToYuv420(benchmark::State& state) {
    std::vector<uint8_t> bgra(size_t(takeWidth) * takeHeight * 4);
    for (size_t i = 0; i < bgra.size(); ++i) bgra[i] = uint8_t((i * 2654435761u) >> 13);
    std::vector<uint8_t> y(size_t(takeWidth) * takeHeight), u(y.size() / 4), v(y.size() / 4);
    for (auto _ : state) {
        convertBgraToYuv420(bgra.data(), takeWidth * 4, takeWidth, takeHeight, y.data(), takeWidth,
                            u.data(), takeWidth / 2, v.data(), takeWidth / 2);
        benchmark::DoNotOptimize(y.data());
    }
}
BENCHMARK(BM_BgraToYuv420)->Unit(benchmark::kMicrosecond);

const bool registered = [] {
    for (const char* preset : {"ultrafast", "superfast", "veryfast"})
        benchmark::RegisterBenchmark((std::string("BM_MovieExport/") + preset).c_str(),
                                     BM_MovieExport, std::string(preset))
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    benchmark::RegisterBenchmark("BM_GifExport", BM_GifExport)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime();
    return true;
}();

}  // namespace
